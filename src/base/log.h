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

// Null-argument check, one line per call: when any of the pointers is null, logs the
// parameter line `text` (its %p filled from the pointers in order) under
// PL_PARAM_ERROR_PRINT and returns `ret` (nothing, for a void call). Log readers match each
// call's text as written, so it is passed whole rather than built from the names.
//   NET_CHECK_ARGS(-1, "pcIfName: %p, pcAddr: %p.\n", pcIfName, pcAddr);
#define NET_CHECK_ARGS(ret, text, ...)                                                             \
    do {                                                                                           \
        if (::netlib::any_null(__VA_ARGS__)) {                                                     \
            NET_LOGT(NET_LVL_ERR, PL_PARAM_ERROR_PRINT, text, NET_PP_PTRS(__VA_ARGS__));           \
            return ret;                                                                            \
        }                                                                                          \
    } while (0)

#define NET_PP_COUNT(...) NET_PP_COUNT_(__VA_ARGS__, 6, 5, 4, 3, 2, 1, 0)
#define NET_PP_COUNT_(a, b, c, d, e, f, n, ...) n
#define NET_PP_CAT(a, b) NET_PP_CAT_(a, b)
#define NET_PP_CAT_(a, b) a##b
#define NET_PP_PTRS(...) NET_PP_CAT(NET_PP_PTRS_, NET_PP_COUNT(__VA_ARGS__))(__VA_ARGS__)
#define NET_PP_PTR(p) ((const void *)(p))
#define NET_PP_PTRS_1(a) NET_PP_PTR(a)
#define NET_PP_PTRS_2(a, b) NET_PP_PTR(a), NET_PP_PTR(b)
#define NET_PP_PTRS_3(a, b, c) NET_PP_PTR(a), NET_PP_PTRS_2(b, c)
#define NET_PP_PTRS_4(a, b, c, d) NET_PP_PTR(a), NET_PP_PTRS_3(b, c, d)
#define NET_PP_PTRS_5(a, b, c, d, e) NET_PP_PTR(a), NET_PP_PTRS_4(b, c, d, e)
#define NET_PP_PTRS_6(a, b, c, d, e, f) NET_PP_PTR(a), NET_PP_PTRS_5(b, c, d, e, f)

// A request whose failure the caller reports itself (or, on purpose, not at all).
#define NET_LVL_NONE (-1)

namespace netlib
{

// Where a log line is attributed: the exported function and the line of its call.
struct CallSite {
    const char *func;
    int line;
};

template <typename... P> constexpr bool any_null(const P *...p)
{
    return ((p == nullptr) || ...);
}

} // namespace netlib

#define NET_HERE (::netlib::CallSite{__func__, __LINE__})
