// The MAC collision monitor: a thread per interface watching ARP traffic for another
// station that sends with this interface's MAC, and the status table its callers read.
#include <arpa/inet.h>
#include <errno.h>
#include <linux/if_ether.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "detect/frames.h"
#include "libnetwork.h"
#include "base/log.h"

using namespace netlib;

namespace
{

constexpr int kMaxSlots = 3;
// Frames with another sender that clear a collision.
constexpr int kClearAfter = 50;

struct Slot {
    char szIfName[16]; // empty: free
    int32_t iStatus;   // 1 while a collision stands
};

// Claimed once, never freed. Claiming takes no lock: monitors start once, at boot.
Slot g_astSlots[kMaxSlots];
// The library's one lock; it guards the status words only.
pthread_mutex_t g_stStatusLock = PTHREAD_MUTEX_INITIALIZER;

void store_status(int slot, int32_t status)
{
    pthread_mutex_lock(&g_stStatusLock);
    g_astSlots[slot].iStatus = status;
    pthread_mutex_unlock(&g_stStatusLock);
}

int32_t load_status(int slot)
{
    pthread_mutex_lock(&g_stStatusLock);
    int32_t status = g_astSlots[slot].iStatus;
    pthread_mutex_unlock(&g_stStatusLock);
    return status;
}

// The MAC of the first listed interface whose name begins with ifname: "eth" finds "eth0"
// on purpose, and its slot is then named "eth".
// -1 logged; 0 with mac set, or with mac left null when the list is empty.
int find_mac(const CallSite &site, const char *ifname, NetIfInfo (&list)[kMaxSlots],
             const unsigned char *&mac)
{
    memset(list, 0, sizeof list);
    int count = NET_GetInterfaces(list, kMaxSlots);
    size_t len = strlen(ifname);
    mac = nullptr;
    for (int i = 0; i < count; ++i) {
        if (strncmp(list[i].szIfName, ifname, len) == 0) {
            mac = list[i].aucMac;
            break;
        }
    }
    if (count > 0 && mac == nullptr) {
        NET_LOG_AT(site, NET_LVL_ERR, "can't find the device\n");
        return -1;
    }
    static const unsigned char kZero[6] = {0};
    if (mac != nullptr && memcmp(mac, kZero, sizeof kZero) == 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "Mac address can not be set zero. \n");
        return -1;
    }
    return 0;
}

// The slot for ifname, or -1 (logged) when it is monitored already or the table is full.
int claim_slot(const CallSite &site, const char *ifname)
{
    for (int i = 0; i < kMaxSlots; ++i) {
        Slot &s = g_astSlots[i];
        if (s.szIfName[0] == '\0') {
            memset(s.szIfName, 0, sizeof s.szIfName);
            strncpy(s.szIfName, ifname, sizeof s.szIfName - 1);
            return i;
        }
        if (strcmp(s.szIfName, ifname) == 0) {
            // "collsion" (and "Collsion" below) are spelt so on purpose: callers match them.
            NET_LOG_AT(site, NET_LVL_DEBUG, "had created Mac collsion thread of '%s'", ifname);
            return -1;
        }
    }
    NET_LOG_AT(site, NET_LVL_ERR, "IfName more than %d, not support!", kMaxSlots);
    return -1;
}

// Never returns: the caller cancels the thread (select and sleep are cancellation points).
void watch(const CallSite &site, int slot, int fd, const unsigned char *mac)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    int countdown = 0;
    uint8_t frame[kArpFrameLen];
    for (;;) {
        int ready = select(fd + 1, &readable, nullptr, nullptr, nullptr);
        if (ready == 0) {
            NET_LOG_AT(site, NET_LVL_ERR, "select time out");
            continue;
        }
        if (ready < 0) {
            NET_LOG_AT(site, NET_LVL_ERR, "Error on ARPING request: %s", strerror(errno));
            // Inverted on purpose: an interrupted wait is read as ready.
            if (errno != EINTR)
                continue;
        }
        if (FD_ISSET(fd, &readable)) {
            memset(frame, 0, sizeof frame);
            ssize_t got = recv(fd, frame, sizeof frame, 0);
            if (got < 1)
                continue;
            if (arp_sender_is(frame, static_cast<size_t>(got), mac)) {
                if (load_status(slot) == 0)
                    store_status(slot, 1);
                countdown = kClearAfter;
                NET_LOG_AT(site, NET_LVL_INFO, "Mac addr collision");
                sleep(2);
            } else if (load_status(slot) == 1) {
                if (--countdown < 1) {
                    store_status(slot, 0);
                    NET_LOG_AT(site, NET_LVL_INFO, "Mac addr get right");
                }
            }
        }
        // At most about one frame a second: a storm queues in the socket instead.
        sleep(1);
    }
}

} // namespace

extern "C" void *net_DetectMacCollisionThread(void *pvArgv)
{
    if (pvArgv == nullptr) {
        NET_LOG(NET_LVL_ERR, "parameter 'pvArgv' is null!");
        return nullptr;
    }
    const char *ifname = static_cast<const char *>(pvArgv);
    NetIfInfo list[kMaxSlots];
    const unsigned char *mac = nullptr;
    if (find_mac(NET_HERE, ifname, list, mac) != 0)
        return nullptr;
    if (mac == nullptr) {
        NET_LOG(NET_LVL_ERR, "Get interface Mac failed, pcSourceMacAddr: %p.", (const void *)mac);
        return nullptr;
    }
    unsigned char own[6];
    memcpy(own, mac, sizeof own);
    int slot = claim_slot(NET_HERE, ifname);
    if (slot < 0)
        return nullptr;
    // A set-up failure from here on keeps the slot: a later monitor for the name stops at
    // once and the status stays 0.
    int fd = socket(AF_PACKET, SOCK_PACKET | SOCK_CLOEXEC, htons(ETH_P_ARP));
    if (fd == -1) {
        NET_LOG(NET_LVL_ERR, "Could not open raw socket");
        return nullptr;
    }
    int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        NET_LOG(NET_LVL_ERR, "Could not setsockopt on raw socket");
        close(fd);
        return nullptr;
    }
    // The thread's name is spelt so on purpose.
    pthreadSetName("detecMAC");
    // The socket is deliberately left to the process when the thread is cancelled.
    watch(NET_HERE, slot, fd, own);
    return nullptr;
}

extern "C" int NET_CreateMacCollThread(void *pvArgv)
{
    // Deliberately a no-op: the application starts net_DetectMacCollisionThread itself.
    (void)pvArgv;
    return 0;
}

extern "C" int NET_GetMacCollStatus(const char *pcIfName, int *piStatus)
{
    if (piStatus == nullptr || pcIfName == nullptr) {
        NET_LOG(NET_LVL_ERR, "parameter is null");
        return -1;
    }
    for (int i = 0; i < kMaxSlots; ++i) {
        if (strcmp(g_astSlots[i].szIfName, pcIfName) == 0) {
            *piStatus = load_status(i);
            return 0;
        }
    }
    NET_LOG(NET_LVL_ERR, "can't find Mac Collsion thread of '%s'!", pcIfName);
    return -1;
}
