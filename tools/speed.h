// Names of the speed and duplex modes, as the tool prints and reads them.
#pragma once

#include <string.h>

#include "libnetwork.h"

#define SPEED_NAMES "auto, 10half, 10full, 100half, 100full, 1000full"

inline const char *speed_name(NetSpeedDuplexMode m)
{
    static const char *const kNames[] = {"auto",    "10half",  "10full",
                                         "100half", "100full", "1000full"};
    int i = static_cast<int>(m);
    return i >= 0 && i <= 5 ? kNames[i] : "unknown";
}

inline bool speed_parse(const char *text, NetSpeedDuplexMode *out)
{
    for (int i = 0; i <= 5; ++i)
        if (strcmp(text, speed_name(static_cast<NetSpeedDuplexMode>(i))) == 0) {
            *out = static_cast<NetSpeedDuplexMode>(i);
            return true;
        }
    return false;
}
