// Host stand-ins for the device's companion libraries. They answer from the environment,
// re-read on every call, so one test process can play several kinds of device.
#include "companion.h"

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

namespace
{

constexpr int kNetModule = 32;
constexpr int kMaxIfs = 8;

pthread_mutex_t g_sinkLock = PTHREAD_MUTEX_INITIALIZER;
COMP_LogSink g_sink = nullptr;
void *g_sinkCtx = nullptr;
int g_rebootCount = 0;
void (*g_rebootHook)(void) = nullptr;

// Splits NETLIB_CAP_IFNAMES into at most kMaxIfs names; returns the count.
int cap_names(char names[kMaxIfs][16])
{
    const char *env = getenv("NETLIB_CAP_IFNAMES");
    if (env == nullptr || *env == '\0')
        env = "eth0";
    int n = 0;
    while (*env != '\0' && n < kMaxIfs) {
        size_t len = strcspn(env, ", ");
        if (len > 0) {
            size_t keep = len < 15 ? len : 15;
            memcpy(names[n], env, keep);
            names[n][keep] = '\0';
            ++n;
        }
        env += len;
        env += strspn(env, ", ");
    }
    return n;
}

// Says once on stderr that a log setting was not understood, and again only when it changes
// to another such value. Called with g_sinkLock held.
void warn_once(char (&last)[128], const char *value, const char *what)
{
    if (strncmp(last, value, sizeof last - 1) == 0)
        return;
    snprintf(last, sizeof last, "%s", value);
    fprintf(stderr, "companion: %s\n", what);
}

char g_badLevel[128];
char g_badTarget[128];

constexpr int kDefaultLevel = 6;

int log_threshold()
{
    const char *env = getenv("NETLIB_LOG_LEVEL");
    if (env == nullptr || *env == '\0')
        return kDefaultLevel;
    char *end = nullptr;
    long v = strtol(env, &end, 10);
    if (*end == '\0')
        return static_cast<int>(v);
    char what[256];
    snprintf(what, sizeof what, "NETLIB_LOG_LEVEL '%s' is not a number; using level %d", env,
             kDefaultLevel);
    pthread_mutex_lock(&g_sinkLock);
    warn_once(g_badLevel, env, what);
    pthread_mutex_unlock(&g_sinkLock);
    return kDefaultLevel;
}

// Standard error instead of a target that cannot take the line, said once.
void fall_back(const char *target, const char *why, const char *line)
{
    char what[512];
    snprintf(what, sizeof what, "NETLIB_LOG '%s' %s; logging to stderr", target, why);
    pthread_mutex_lock(&g_sinkLock);
    warn_once(g_badTarget, target, what);
    pthread_mutex_unlock(&g_sinkLock);
    fprintf(stderr, "%s\n", line);
}

void write_configured(int level, const char *line)
{
    if (level > log_threshold())
        return;
    const char *target = getenv("NETLIB_LOG");
    if (target == nullptr || *target == '\0' || strcmp(target, "stderr") == 0) {
        fprintf(stderr, "%s\n", line);
    } else if (strcmp(target, "syslog") == 0) {
        syslog(level < 0 ? LOG_ERR : (level > 7 ? LOG_DEBUG : level), "%s", line);
    } else if (strncmp(target, "file:", 5) == 0) {
        FILE *f = fopen(target + 5, "ae");
        if (f == nullptr) {
            char why[160];
            snprintf(why, sizeof why, "cannot be written (%s)", strerror(errno));
            fall_back(target, why, line);
            return;
        }
        fprintf(f, "<%d> %s\n", level, line);
        fclose(f);
    } else if (strcmp(target, "none") != 0) {
        fall_back(target, "is not stderr, syslog, file:PATH or none", line);
    }
}

} // namespace

extern "C" {

void LOG_Msg(int iModule, int iLevel, const char *pcFmt, ...)
{
    if (pcFmt == nullptr)
        return;
    char line[1024];
    va_list ap;
    va_start(ap, pcFmt);
    vsnprintf(line, sizeof line, pcFmt, ap);
    va_end(ap);

    pthread_mutex_lock(&g_sinkLock);
    COMP_LogSink sink = g_sink;
    void *ctx = g_sinkCtx;
    if (sink != nullptr)
        sink(iModule, iLevel, line, ctx);
    pthread_mutex_unlock(&g_sinkLock);
    if (sink == nullptr)
        write_configured(iLevel, line);
}

const char *LOG_EnumToStr(int iModule)
{
    return iModule == kNetModule ? "NETWORK" : "UNKNOWN";
}

int CAP_GetNetIntfNum(void)
{
    char names[kMaxIfs][16];
    return cap_names(names);
}

int CAP_IsDoubleIntfSupport(void)
{
    return CAP_GetNetIntfNum() >= 2 ? 1 : 0;
}

int CAP_GetNetIntfName(int iIndex, int iLen, char *pcName)
{
    char names[kMaxIfs][16];
    int n = cap_names(names);
    if (pcName == nullptr || iLen <= 0 || iIndex < 0 || iIndex >= n)
        return -1;
    snprintf(pcName, (size_t)iLen, "%s", names[iIndex]);
    return 0;
}

int SYS_Reboot(void)
{
    void (*hook)(void) = nullptr;
    pthread_mutex_lock(&g_sinkLock);
    ++g_rebootCount;
    hook = g_rebootHook;
    pthread_mutex_unlock(&g_sinkLock);
    LOG_Msg(kNetModule, 6, "SYS_Reboot: reboot requested (host stand-in, not rebooting)");
    const char *file = getenv("NETLIB_REBOOT_FILE");
    if (file != nullptr && *file != '\0') {
        FILE *f = fopen(file, "ae");
        if (f != nullptr) {
            fputs("reboot\n", f);
            fclose(f);
        }
    }
    if (hook != nullptr)
        hook();
    return 0;
}

int pthreadSetName(const char *pcName)
{
    if (pcName == nullptr)
        return -1;
    char name[16];
    snprintf(name, sizeof name, "%s", pcName);
    return pthread_setname_np(pthread_self(), name) == 0 ? 0 : -1;
}

int pthreadCancel(unsigned long ulThread)
{
    return pthread_cancel(static_cast<pthread_t>(ulThread)) == 0 ? 0 : -1;
}

void COMP_SetLogSink(COMP_LogSink pfnSink, void *pvCtx)
{
    pthread_mutex_lock(&g_sinkLock);
    g_sink = pfnSink;
    g_sinkCtx = pvCtx;
    pthread_mutex_unlock(&g_sinkLock);
}

int COMP_GetRebootCount(void)
{
    pthread_mutex_lock(&g_sinkLock);
    int n = g_rebootCount;
    pthread_mutex_unlock(&g_sinkLock);
    return n;
}

void COMP_SetRebootHook(void (*pfnHook)(void))
{
    pthread_mutex_lock(&g_sinkLock);
    g_rebootHook = pfnHook;
    pthread_mutex_unlock(&g_sinkLock);
}

} // extern "C"
