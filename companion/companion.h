/*
 * The device's companion libraries (logging, capabilities, system, threads) as the network
 * library calls them, plus the host-only controls of our stand-ins.
 */
#ifndef NETLIB_COMPANION_H
#define NETLIB_COMPANION_H

#ifdef __cplusplus
extern "C" {
#endif

#define COMP_API __attribute__((visibility("default")))

/* ---- Logging ---------------------------------------------------------------------------- */
/* Formats one log line of a module at a level (3 error, 6 information, 7 debug). */
COMP_API void LOG_Msg(int iModule, int iLevel, const char *pcFmt, ...)
    __attribute__((format(printf, 3, 4)));
/* The printable name of a module number ("NETWORK" for 32). */
COMP_API const char *LOG_EnumToStr(int iModule);

/* ---- Capabilities ----------------------------------------------------------------------- */
/* Non-zero when the device is built with two network interfaces. */
COMP_API int CAP_IsDoubleIntfSupport(void);
/* Number of network interfaces of the device. */
COMP_API int CAP_GetNetIntfNum(void);
/* Writes the name of interface iIndex (from 0) into pcName (iLen bytes); 0 on success. */
COMP_API int CAP_GetNetIntfName(int iIndex, int iLen, char *pcName);

/* ---- System and threads ----------------------------------------------------------------- */
/* Reboots the device. The host stand-in only records the request. */
COMP_API int SYS_Reboot(void);
/* Names the calling thread (at most 15 characters are kept by the kernel). */
COMP_API int pthreadSetName(const char *pcName);
/* Cancels the thread with the given handle. */
COMP_API int pthreadCancel(unsigned long ulThread);

/* ---- Host stand-in controls (not on the device) ----------------------------------------
 * Capabilities: NETLIB_CAP_IFNAMES, a comma-separated list of interface names ("eth0" by
 * default; two names make a two-interface device), re-read on every call.
 * Log output: NETLIB_LOG = "stderr" (default) | "syslog" | "file:PATH" | "none";
 * NETLIB_LOG_LEVEL = highest level written (default 6). A sink set below takes every line.
 * Reboot: NETLIB_REBOOT_FILE, when set, gets one line "reboot" appended per request. */
typedef void (*COMP_LogSink)(int iModule, int iLevel, const char *pcLine, void *pvCtx);
/* Sends every formatted log line to pfnSink (all levels) instead of the configured output;
 * a null sink restores the configured output. */
COMP_API void COMP_SetLogSink(COMP_LogSink pfnSink, void *pvCtx);
/* Reboot requests recorded since load. */
COMP_API int COMP_GetRebootCount(void);
/* Called on each SYS_Reboot, in addition to the record; null removes it. */
COMP_API void COMP_SetRebootHook(void (*pfnHook)(void));

#ifdef __cplusplus
}
#endif

#endif
