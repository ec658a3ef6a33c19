// Logging of the library: every line goes to LOG_Msg under module 32 with the prefix
// "[module][function][line] ", an optional tag, then the message text in double quotes.
// The message is stringified on purpose, so its escapes ("\n") appear as written.
#pragma once

#include "companion.h"

#define NET_LOG_MODULE 32

#define NET_LVL_ERR 3
#define NET_LVL_INFO 6
#define NET_LVL_DEBUG 7

// Tagged line: NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, "pcIfName: %p. \n", p).
#define NET_LOGT(level, tag, msg, ...)                                                             \
    LOG_Msg(NET_LOG_MODULE, (level), "[%s][%s][%d] " #tag " " #msg, LOG_EnumToStr(NET_LOG_MODULE), \
            __func__, __LINE__, ##__VA_ARGS__)

// Line without a tag.
#define NET_LOG(level, msg, ...)                                                                   \
    LOG_Msg(NET_LOG_MODULE, (level), "[%s][%s][%d] " #msg, LOG_EnumToStr(NET_LOG_MODULE),          \
            __func__, __LINE__, ##__VA_ARGS__)

// Same, on behalf of a caller: a shared helper logs under its caller's name and line.
#define NET_LOGT_AT(site, level, tag, msg, ...)                                                    \
    LOG_Msg(NET_LOG_MODULE, (level), "[%s][%s][%d] " #tag " " #msg, LOG_EnumToStr(NET_LOG_MODULE), \
            (site).func, (site).line, ##__VA_ARGS__)

#define NET_LOG_AT(site, level, msg, ...)                                                          \
    LOG_Msg(NET_LOG_MODULE, (level), "[%s][%s][%d] " #msg, LOG_EnumToStr(NET_LOG_MODULE),          \
            (site).func, (site).line, ##__VA_ARGS__)

// A request whose failure the caller reports itself (or, on purpose, not at all).
#define NET_LVL_NONE (-1)

namespace netlib
{

// Where a log line is attributed: the exported function and the line of its call.
struct CallSite {
    const char *func;
    int line;
};

} // namespace netlib

#define NET_HERE (::netlib::CallSite{__func__, __LINE__})
