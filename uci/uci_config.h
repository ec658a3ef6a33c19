/* Build options of libuci: define UCI_DEBUG or UCI_DEBUG_TYPECAST here when debugging. */
#ifndef __UCI_CONFIG_H
#define __UCI_CONFIG_H
#endif
