// Descriptor audit: every exported function of libnetwork.h called on its failure paths (null
// pointers, a missing interface, a missing package or section, a request the kernel refuses)
// and, where it has none, on its plain path; after each call the process must hold exactly
// the descriptors it held before, plus those the interface leaves open on purpose.
//
// Left open on purpose (rows with leaks = 1, and nowhere else):
//   - NET_SetSpeedDuplex with a mode outside 0 to 5, once the settings were read: its socket.
//   - net_DetectMacCollisionThread cancelled in its loop: its packet socket stays with the
//     process.
// Not descriptors, so not counted here (memory the sanitizer build is told to ignore):
//   - NET_GetEtherCfg failing to list the live IPv6 addresses leaves its package open;
//     NET_SetRouteCfg does the same on two exits no caller can reach.
//   - drv_net_GetSetDefaultEthCB (and createNetInterface through it) leaves open the package
//     it loads to choose the default-card pair.
// Paths not taken: NET_SendGratuitousPack and NET_GetIfNameByIp (its address) with a null
// pointer dereference it, as documented; success paths that hand a descriptor to the caller.
//
// To cover a new exported function, add its rows to the table below; the coverage test fails
// while a function of the header has none.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

#include "libnetwork.h"
#include "sandbox.h"

// The client calls wait between attempts with sleep(); this process's sleep (the library's
// call binds to it) returns at once.
extern "C" unsigned int sleep(unsigned int)
{
    return 0;
}

namespace
{

// Where a row runs. Bare: a fresh one-interface device whose "eth0" does not exist, and no
// configuration at all. Store: the packages exist without the sections the calls want, and
// "/etc/resolv.conf" cannot be opened for writing. Live: a two-interface device with "lan1"
// (a veth end with addresses), "tap0" (no address, no carrier) and a few stored sections.
enum class World { Bare, Store, Live };

enum class Need {
    Nothing,
    Ethtool,      // skipped where the emulator does not carry SIOCETHTOOL
    MemoryLeakOk, // leaves a package open on purpose: hidden from the leak checker
};

// What the calls work with, set up before any row is measured.
struct Ctx {
    char text[256];
    char text2[256];
    char work[64]; // a writable source text
    unsigned char bytes[64];
    int number = 0;
    int number2 = 0;
    unsigned int u32 = 0;
    unsigned int optlen = 4;
    int one = 1;
    double real = 0;
    NetSpeedDuplexMode mode = NET_SPEED_DUPLEX_AUTO;
    int closedFd = -1;             // a number known to be closed
    int udp = -1;                  // an unconnected UDP socket
    int listener = -1;             // a TCP listener on 127.0.0.1 that nobody connects to
    unsigned short busyPort = 0;   // its port
    unsigned short closedPort = 0; // a port nobody listens on
    int closedPortInt = 0;
    char closedPortText[8] = {0};
    struct sockaddr_in6 storage; // 28 bytes: 127.0.0.1:closedPort
    struct sockaddr_in6 scratch; // written by the address builders
    struct sockaddr_in group;    // 239.1.2.3
    NetIpv6AddrList v6list;
    NetIpv6AddrInfoList v6info;
    NetPeerAddr peer;
    NetEtherCfg ether;
    NetPortCfg portCfg;
    NetDdnsCfg ddns;
    NetPppoeCfg pppoe;
    NetIpcConfig ipc;
    NetIfInfo ifs[4];
    NetDriverInterface drv;
    NetCfgInterface cfgIf;

    struct sockaddr *sa() { return reinterpret_cast<struct sockaddr *>(&storage); }
    struct sockaddr *groupSa() { return reinterpret_cast<struct sockaddr *>(&group); }
    struct sockaddr *scratchSa() { return reinterpret_cast<struct sockaddr *>(&scratch); }
};

struct Row {
    World world;
    const char *fn; // as the header declares it
    void (*call)(Ctx &);
    const char *path;
    int leaks = 0; // descriptors left open on purpose
    Need need = Need::Nothing;
};

// One call with the given arguments; `c` is the Ctx.
#define CALL(fn, ...)                                                                              \
#fn, [](Ctx &c) {                                                                              \
        (void)c;                                                                                   \
        (void)fn(__VA_ARGS__);                                                                     \
    }

constexpr World Bare = World::Bare;
constexpr World Store = World::Store;
constexpr World Live = World::Live;

const NetSpeedDuplexMode kBadMode = static_cast<NetSpeedDuplexMode>(6);

// A fresh TCP socket of the row's own, connected nowhere and closed again by the row.
struct OwnSocket {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ~OwnSocket()
    {
        if (fd >= 0)
            close(fd);
    }
};

// "network" loaded with its first section, freed at the end of the row.
struct Loaded {
    struct uci_package *p = NET_CreatePackage("network");
    struct uci_section *s = p != nullptr ? NET_GetSection(p, "loopback") : nullptr;
    ~Loaded()
    {
        if (p != nullptr)
            NET_FreePackage(p);
    }
};

// A monitor that reached its loop (it names itself just before), then cancelled.
void run_and_cancel_monitor(const char *ifname)
{
    pthread_t t;
    if (pthread_create(&t, nullptr, sandbox::mac_monitor_thread, const_cast<char *>(ifname)) != 0)
        return;
    for (int i = 0; i < 2500; ++i) {
        char name[16] = {0};
        if (pthread_getname_np(t, name, sizeof name) == 0 && strcmp(name, "detecMAC") == 0)
            break;
        usleep(2000);
    }
    pthread_cancel(t);
    pthread_join(t, nullptr);
}

void *wait_for_cancel(void *)
{
    for (;;)
        pause();
    return nullptr;
}

const std::vector<Row> &rows()
{
    static const std::vector<Row> table = {
        // ---- Library frame ----------------------------------------------------------------
        {Bare, CALL(NET_Init), "plain"},
        {Bare, CALL(NET_GetIntfNames, nullptr), "null record"},
        {Bare, CALL(NET_GetInterfaces, c.ifs, 4), "the loopback only"},
        {Bare, CALL(NET_GetMacAddr, "nosuch0", c.text, 32), "missing interface"},
        {Bare, CALL(NET_GetMacAddrNum, "lo", c.bytes, 7), "loopback refused"},
        {Bare, CALL(NET_GetMacAddrNum, "nosuch0", c.bytes, 7), "missing interface"},
        {Bare, CALL(NET_IsPortUsed, c.busyPort), "port taken"},
        {Bare, CALL(NET_IsPortUsed, c.closedPort), "port free"},
        {Bare, CALL(NET_Restart), "the network script"},

        // ---- IPv4 addressing --------------------------------------------------------------
        {Bare, CALL(NET_GetIpv4Addr, "nosuch0", c.text, 16), "missing interface"},
        {Bare, CALL(NET_GetIpv4Addr, "wan-pppoe", c.text, 16), "missing PPPoE link, silent"},
        {Live, CALL(NET_GetIpv4Addr, "tap0", c.text, 16), "refused: no address"},
        {Bare, CALL(NET_SetIpv4Addr, "nosuch0", "10.0.0.1"), "missing interface"},
        {Live, CALL(NET_SetIpv4Addr, "lan2", "192.168.1.10"), "held by the other interface"},
        {Bare, CALL(NET_GetIpv4Mask, "nosuch0", c.text, 16), "missing interface"},
        {Bare, CALL(NET_SetIpv4Mask, "nosuch0", "255.0.0.0"), "missing interface"},
        {Bare, CALL(NET_SetIpv4Gateway, "nosuch0", "0.0.0.0"), "no gateway"},
        {Bare, CALL(NET_SetIpv4Gateway, "nosuch0", "10.0.0.1"), "missing interface"},
        {Live, CALL(NET_SetIpv4Gateway, "lan1", "10.0.0.1"), "refused: unreachable gateway"},
        {Live, CALL(NET_DelIpv4Gateway, "lan1", "192.168.1.1"), "refused: no such route"},
        {Bare, CALL(NET_GetIpv4Gateway, "nosuch0", c.text, 16), "no default route"},
        {Bare, CALL(NET_IPv4GetDefIfAddr, c.text, 16), "missing first interface"},
        {Bare, CALL(NET_IPv4GetDefIfMask, c.text, 16), "missing first interface"},
        {Bare, CALL(NET_IPv4SetDefGatway, "10.0.0.1"), "missing first interface"},
        {Bare, CALL(NET_IPv4DelDefGatway, "10.0.0.1"), "missing first interface"},
        {Bare, CALL(NET_IPv4GetDefGateway, c.text, 16), "no default route"},
        {Bare, CALL(NET_IsBridge, "nosuch0"), "missing interface"},
        {Bare, CALL(INET_IsIpv4AddrExist, "nosuch0", "10.0.0.1"), "missing interface"},
        {Bare, CALL(NET_IPv4SetAddr, "eth0", "10.0.0.1", "255.0.0.0"), "missing package"},
        {Live, CALL(NET_IPv4SetAddr, "lan1", "192.168.1.20", "255.255.255.0"), "DHCP mode"},
        {Live, CALL(NET_IPv4SetAddr, "nosuch0", "10.9.9.9", "255.0.0.0"),
         "stored, then refused: missing interface"},
        {Live, CALL(NET_IPv4SetAddr, "nb1", "10.8.8.8", "bad"), "mask that does not convert"},

        // ---- Link control -------------------------------------------------------------------
        {Bare, CALL(NET_IntfUp, "nosuch0"), "missing interface"},
        {Bare, CALL(NET_IntfDown, "lo"), "loopback refused"},
        {Bare, CALL(NET_IntfDown, "nosuch0"), "missing interface"},
        {Bare, CALL(NET_GetMtu, "nosuch0", &c.number), "missing interface"},
        {Bare, CALL(NET_SetMtu, "lo", 1501), "out of range"},
        {Bare, CALL(NET_SetMtu, "nosuch0", 1400), "missing interface"},
        {Bare, CALL(NET_GetPortLinkStatus, "nosuch0", &c.number), "missing interface"},
        {Bare, CALL(NET_GetSupportSpeed, "nosuch0", &c.mode), "missing interface"},
        {Bare, CALL(NET_GetSupportSpeed, "lo", &c.mode), "refused: no link settings"},
        {Bare, CALL(NET_SetSpeedDuplex, "nosuch0", kBadMode), "missing interface, on the read"},
        {Bare, CALL(NET_SetSpeedDuplex, "lo", NET_SPEED_DUPLEX_AUTO), "refused read"},
        {Live, CALL(NET_SetSpeedDuplex, "tap0", kBadMode), "invalid mode after the read", 1,
         Need::Ethtool},
        {Live, CALL(NET_SetSpeedDuplex, "tap0", NET_SPEED_DUPLEX_100_FULL), "forced", 0,
         Need::Ethtool},
        {Bare, CALL(NET_GetSpeedDuplex, "nosuch0", &c.mode), "missing interface"},
        {Bare, CALL(NET_GetPortMapping, 80, nullptr, nullptr, nullptr), "placeholder"},

        // ---- Older direct-ioctl calls -------------------------------------------------------
        {Bare, CALL(get_mac_num, "lo", c.bytes, 7), "loopback refused"},
        {Bare, CALL(get_mac_num, "nosuch0", c.bytes, 5), "short buffer"},
        {Bare, CALL(get_mac_num, "nosuch0", c.bytes, 7), "missing interface"},
        {Bare, CALL(set_ipaddr, "nosuch0", "bad"), "text that does not convert"},
        {Bare, CALL(set_ipaddr, "nosuch0", "10.0.0.1"), "missing interface"},
        {Bare, CALL(set_netmask, "nosuch0", "255.0.0.0"), "missing interface"},
        {Bare, CALL(set_gateway, "nosuch0", "bad"), "text that does not convert"},
        {Bare, CALL(set_gateway, "nosuch0", "10.0.0.1"), "missing interface"},
        {Bare, CALL(del_gateway, "nosuch0", "10.0.0.1"), "missing interface"},
        {Bare, CALL(set_mac, "nosuch0", "zz"), "text that does not convert"},
        {Bare, CALL(set_mac, "nosuch0", "02:00:00:00:00:01"), "missing interface"},
        {Bare, CALL(set_mtu, "nosuch0", 0), "not positive"},
        {Bare, CALL(set_mtu, "nosuch0", 1400), "missing interface"},
        {Bare, CALL(get_mtu, "nosuch0", &c.number), "missing interface"},
        {Bare, CALL(get_ipaddr, "nosuch0", c.text, 16), "missing interface"},
        {Bare, CALL(get_netmask, "nosuch0", c.text, 16), "missing interface"},
        {Bare, CALL(get_broadcast_addr, "nosuch0", c.text, 16), "missing interface"},
        {Bare, CALL(get_ipaddr1, "nosuch0", &c.u32), "missing interface"},
        {Bare, CALL(get_mac, "lo", c.text, 8), "short buffer"},
        {Bare, CALL(get_mac, "nosuch0", c.text, 18), "missing interface"},
        {Bare, CALL(get_gateway, "nosuch0", c.text, 16), "no default route"},
        {Bare, CALL(get_gateway_devname, c.text, 16), "no default route"},
        {Bare, CALL(if_up, "nosuch0"), "missing interface"},
        {Bare, CALL(if_down, "nosuch0"), "missing interface"},
        {Bare, CALL(isSameSubnet, "10.0.0.1", "bad", "255.0.0.0"), "text that does not convert"},

        // ---- IPv6 addressing ----------------------------------------------------------------
        {Bare, CALL(NET_GetIpv6AddrList, "nosuch0", &c.v6list), "missing interface"},
        {Live, CALL(NET_GetIpv6AddrList, "lan1", &c.v6list), "listed"},
        {Bare, CALL(NET_GetIpv6Prefix, "nosuch0", "20010db8000000000000000000000010", &c.number),
         "no route"},
        {Bare, CALL(NET_GetIpv6Gateway, "nosuch0", c.text, 46), "no default route"},
        {Bare, CALL(NET_SetLocalIpv6Addr, "nosuch0", "bad", 64), "text that does not convert"},
        {Bare, CALL(NET_SetLocalIpv6Addr, "nosuch0", "2001:db8::5", 64), "missing interface"},
        {Live, CALL(NET_SetLocalIpv6Addr, "lan1", "2001:db8::5", 200), "refused: prefix 200"},
        {Bare, CALL(NET_AddIpv6Addr, "nosuch0", "2001:db8::5", 128), "prefix length refused"},
        {Bare, CALL(NET_AddIpv6Addr, "nosuch0", "2001:db8::5", 64), "missing interface"},
        {Live, CALL(NET_AddIpv6Addr, "lan1", "2001:db8::g", 64), "text that does not convert"},
        {Live, CALL(NET_DelIpv6Addr, "lan1", "2001:db8::99", 64), "refused: not held"},

        // ---- DNS resolver file and DHCP switching -------------------------------------------
        {Bare, CALL(NET_GetDnsServer, "eth0", c.text, 16, c.text2, 16), "no block"},
        {Store, CALL(NET_GetDnsServer, "eth0", c.text, 16, c.text2, 16), "unreadable file"},
        {Bare, CALL(NET_SetDnsServer, "eth0", "192.0.2.1", "0.0.0.0"), "written"},
        {Store, CALL(NET_SetDnsServer, "eth0", "192.0.2.1", nullptr), "unwritable file"},
        {Bare, CALL(NET_EnableDnsServer, "eth0", nullptr, nullptr), "no servers"},
        {Store, CALL(NET_EnableDnsServer, "eth0", "192.0.2.1", "192.0.2.2"), "unwritable file"},
        {Bare, CALL(net_GetExistNameserver, c.text, 128, c.text2, 128), "kept lines"},
        {Bare, CALL(create_resolv_file), "plain"},
        {Bare, CALL(NET_EnableDhcp, "eth0"), "missing package"},
        {Bare, CALL(NET_DisableDhcp, "eth0"), "missing package"},

        // ---- Older IPv6 calls ---------------------------------------------------------------
        {Bare, CALL(add_ipv6_addr, "2001:db8::5", 64), "missing first interface"},
        {Live, CALL(add_ipv6_addr, "bad", 64), "text that does not convert"},
        {Live, CALL(del_ipv6_addr, "2001:db8::99", 64), "refused: not held"},
        {Bare, CALL(get_ipv6addr_num, "nosuch0", c.bytes, &c.number, c.bytes + 16, &c.number2),
         "missing interface"},
        {Live, CALL(get_ipv6addr_num, "lan1", c.bytes, &c.number, c.bytes + 16, &c.number2),
         "listed"},
        {Bare, CALL(get_ipv6_gateway_num, "nosuch0", c.bytes), "no default route"},
        {Bare, CALL(get_route_ipv6_addrlist, "nosuch0", &c.v6info), "missing interface"},
        {Bare, CALL(convert_ipv6str_tonum, "xyz", c.bytes), "text that does not convert"},
        {Bare, CALL(convert_ipv6num_tostr, c.bytes, c.text, 8), "short buffer"},
        {Bare, CALL(check_ipv6_valid, nullptr), "null text"},
        {Bare, CALL(get_one_right_ipv6_addr, "nosuch0", c.text, 64, &c.number),
         "missing interface"},
        {Bare, CALL(get_all_ipv6addr, "nosuch0", &c.v6info), "missing interface"},
        {Bare, CALL(get_dns, c.text, 16, c.text2, 16), "no block"},

        // ---- Driver interface table and its adapters -----------------------------------------
        {Bare, "createNetInterface",
         [](Ctx &) {
             NetDriverInterface *t = nullptr;
             if (createNetInterface(&t) == 0)
                 free(t);
         },
         "no package: the older default-card pair"},
        {Store, "createNetInterface",
         [](Ctx &) {
             NetDriverInterface *t = nullptr;
             if (createNetInterface(&t) == 0)
                 free(t);
         },
         "the package opened to choose the pair is left open", 0, Need::MemoryLeakOk},
        {Bare, CALL(createNetCfgInterface, &c.cfgIf), "filled"},
        {Bare, CALL(drv_net_GetSetDefaultEthCB, &c.drv), "no package"},
        {Store, CALL(drv_net_GetSetDefaultEthCB, &c.drv), "package left open", 0,
         Need::MemoryLeakOk},
        {Bare, CALL(drv_net_GetEthName, c.text, 64, &c.number), "names joined"},
        {Bare, CALL(drv_net_SetHostIPEx, "nosuch0", "10.0.0.1", "255.0.0.0"),
         "missing interface"},
        {Bare, CALL(drv_net_GetHostIPEx, "nosuch0", c.text, 16, c.text2, 16),
         "missing interface"},
        {Bare, CALL(drv_net_GetLinkStatus, "nosuch0"), "missing interface"},
        {Bare, CALL(drv_net_CheckIpv4Collision, "nosuch0", "10.0.0.1", &c.number),
         "missing interface"},
        {Bare, CALL(drv_net_CheckIpv6Collision, "nosuch0", "2001:db8::1", &c.number),
         "missing interface, after the socket"},
        {Bare, CALL(drv_net_GetIpv6Addr, "nosuch0", c.text, 64, &c.number), "missing interface"},
        {Live, CALL(drv_net_GetScopeGlobalAddr6, "lan1", c.text, 64, &c.number),
         "none from a router advertisement"},
        {Bare, CALL(drv_net_DelIpv6Address, "nosuch0", "2001:db8::5"), "missing interface"},
        {Live, CALL(drv_net_DelIpv6Address, "lan1", "2001:db8::99"), "not the current address"},
        {Bare, CALL(drv_net_GetIpv6AddrList, "nosuch0", &c.v6list), "missing interface"},
        {Bare, CALL(drv_net_SetIpv6Gateway, nullptr, nullptr), "placeholder"},
        {Bare, CALL(drv_net_SetSpeedDuplex, "nosuch0", kBadMode), "missing interface"},
        {Live, CALL(drv_net_SetSpeedDuplex, "tap0", static_cast<NetSpeedDuplexMode>(9)),
         "mode 9 taken as auto: no descriptor left", 0, Need::Ethtool},
        {Bare, CALL(drv_net_GetSpeedDuplex, "nosuch0", &c.mode), "missing interface"},
        {Bare, CALL(drv_net_GetMaxSupportSpeedx, "nosuch0", &c.mode), "missing interface"},
        {Bare, CALL(drv_net_GetDefNetCard, c.text, 16), "missing package"},
        {Bare, CALL(drv_net_SetDefaultEth, "lan1"), "kept"},
        {Bare, CALL(drv_net_GetDefaultEth, c.text, 16), "copied"},
        {Bare, CALL(update_active_interface), "no client address"},

        // ---- Address conversion and checks --------------------------------------------------
        {Bare, CALL(INET_Ipv4StrToNum, nullptr, c.bytes), "null text"},
        {Bare, CALL(INET_Ipv6StrToNum, "bad", c.bytes), "text that does not convert"},
        {Bare, CALL(INET_Ipv4NumToStr, c.bytes, c.text, 4), "short buffer"},
        {Bare, CALL(INET_Ipv6NumToStr, nullptr, c.text, 46), "null address"},
        {Bare, CALL(INET_IsIpaddrValid, nullptr), "null text"},
        {Bare, CALL(INET_IsIpv4AddrValid, "bad"), "not an address"},
        {Bare, CALL(INET_IsIpv6AddrValid, "fe80::1"), "link-local"},
        {Bare, CALL(Inet_PtoN, 7, "x", c.bytes), "unknown family"},
        {Bare, CALL(Inet_NtoP, 10, c.bytes, c.text, 4), "short buffer"},
        {Bare, CALL(inet_pton_with_af, 2, nullptr, c.bytes, 4), "null text"},
        {Bare, CALL(inet_ntop_with_af, 2, c.bytes, c.text, 0), "size 0"},
        {Bare, CALL(is_string_ipaddr_ipv4, nullptr, nullptr), "null text"},
        {Bare, CALL(is_string_ipaddr_ipv6, "::1", nullptr), "null output"},
        {Bare, CALL(is_stringip_multicast, "224.0.0.1", nullptr), "null output"},
        {Bare, CALL(is_stringip_ipv6, nullptr), "null text"},
        {Bare, CALL(is_ipaddr_lawful, nullptr), "null text"},
        {Bare, CALL(is_mask_valid, 0u), "no mask"},
        {Bare, CALL(is_ip_valid, 0x0100007fu, 0xffffffffu), "loopback"},
        {Bare, CALL(is_address_valid, 0x7fu), "loopback"},
        {Bare, CALL(is_port_lawful, 0x10000u), "low bits zero"},
        {Bare, CALL(is_domain_valid, nullptr), "null text"},
        {Bare, CALL(is_hostname_valid, "-x"), "bad first character"},
        {Bare, CALL(is_support_ipv6), "plain"},
        {Bare, CALL(convert_ipv6_prefix_netmask, 128u, c.bytes), "prefix 128 refused"},
        {Bare, CALL(convert_ipv6_netmask_num, nullptr), "null mask"},
        {Bare, CALL(check_str_ipv4, nullptr), "null text"},
        {Bare, CALL(check_str_ipv6, "bad"), "not an address"},
        {Bare, CALL(is_port_legal, 0), "port 0"},
        {Bare, CALL(is_stringipv6_multicast, nullptr, c.bytes), "null text"},
        {Bare, CALL(is_v6_addr_valid, nullptr), "null text"},
        {Bare, CALL(is_v6_mask_valid, "ffff::1"), "broken mask"},
        {Bare, CALL(is_v6_addr_multicast, nullptr), "null text"},

        // ---- Socket helper family -----------------------------------------------------------
        {Bare, CALL(Socket_Readn, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(Socket_Write, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(Socket_WritetoFtp, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, "Socket_ConnectwithTimeout",
         [](Ctx &c) {
             OwnSocket s;
             (void)Socket_ConnectwithTimeout(s.fd, c.sa(), 5);
         },
         "refused connect"},
        {Bare, CALL(Socket_AcceptWithTimeout, 0, nullptr, 10), "descriptor 0"},
        {Bare, CALL(Socket_AcceptWithTimeout, c.listener, nullptr, 0), "time-out"},
        {Bare, CALL(Socket_AcceptWithTimeout, c.closedFd, nullptr, 0), "closed descriptor"},
        {Bare, CALL(Socket_TcpSrvCom, c.busyPort), "port taken"},
        {Bare, CALL(Socket_TcpCliCom, "127.0.0.1", &c.closedPortInt, &c.number, 2),
         "refused twice"},
        {Bare, CALL(Socket_SetKeepLive, c.closedFd, 1, 10, 4, 2), "closed descriptor"},
        {Bare, CALL(Make_AddrbyString, AF_INET, "bad", 80, c.scratchSa()), "text that does not convert"},
        {Bare, CALL(Socket_GetSockOpt, c.closedFd, SOL_SOCKET, SO_ERROR, &c.number, &c.optlen),
         "closed descriptor"},
        {Bare, CALL(Socket_SetSockOpt, c.closedFd, SOL_SOCKET, SO_REUSEADDR, &c.one, 4u),
         "closed descriptor"},
        {Bare, CALL(Socket_GetSockName, c.closedFd, c.sa(), &c.optlen), "closed descriptor"},
        {Bare, CALL(Socket_Reuse, c.closedFd), "closed descriptor"},
        {Bare, CALL(Socket_SetMcastTtl, c.closedFd, 1), "closed descriptor"},
        {Bare, CALL(Socket_SetLinger, c.closedFd, 1, 0), "closed descriptor"},
        {Bare, CALL(Socket_AddrtoStr, nullptr), "null address"},
        {Bare, CALL(Is_IpV4Addr, "", nullptr), "empty text"},
        {Bare, CALL(Is_IpV6Addr, nullptr, c.bytes), "null text"},
        {Bare, CALL(Is_SupportIpv6), "plain"},
        {Bare, CALL(Get_IpPort), "plain"},
        {Bare, CALL(Get_SocketFamily), "plain"},
        {Bare, CALL(Socket_Create, -1, SOCK_STREAM, 0), "unknown family"},
        {Bare, CALL(Socket_Bind, c.closedFd, c.sa()), "closed descriptor"},
        {Bare, CALL(Socket_Listen, c.closedFd, 5), "closed descriptor"},
        {Bare, CALL(Socket_SendTo, c.udp, c.text, -1, nullptr), "negative length"},
        {Bare, CALL(Socket_SendTo, c.closedFd, c.text, 8, c.sa()), "closed descriptor"},
        {Bare, CALL(Socket_RecvFrom, c.udp, c.text, 0, c.sa()), "zero length"},
        {Bare, CALL(Socket_RecvFrom, c.closedFd, c.text, 8, c.sa()), "closed descriptor"},
        {Bare, CALL(Socket_Close, c.closedFd), "closed descriptor"},

        // ---- Legacy socket API family -------------------------------------------------------
        {Bare, CALL(socket_api, -1, SOCK_STREAM, 0), "unknown family"},
        {Bare, CALL(connect_api, c.closedFd, c.sa(), 16u), "closed descriptor"},
        {Bare, CALL(accept_api, c.closedFd, nullptr, nullptr), "closed descriptor"},
        {Bare, CALL(bind_api, c.closedFd, c.sa(), 16u), "closed descriptor"},
        {Bare, CALL(listen_api, c.closedFd, 5), "closed descriptor"},
        {Bare, CALL(setsockopt_api, c.closedFd, SOL_SOCKET, SO_REUSEADDR, &c.one, 4u),
         "closed descriptor"},
        {Bare, CALL(getsockopt_api, c.closedFd, SOL_SOCKET, SO_ERROR, &c.number, &c.optlen),
         "closed descriptor"},
        {Bare, CALL(getsockname_api, c.closedFd, c.sa(), &c.optlen), "closed descriptor"},
        {Bare, CALL(close_api, c.closedFd), "closed descriptor"},
        {Bare, CALL(inet_pton_api, AF_INET, "1.2.3", c.bytes), "text that does not convert"},
        {Bare, CALL(close_nowait_api, c.closedFd), "closed descriptor"},
        {Bare, CALL(readn_api, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(write_api, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(writen_api, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, "connectwithtimeout_api",
         [](Ctx &c) {
             OwnSocket s;
             struct timeval tv = {1, 0};
             (void)connectwithtimeout_api(s.fd, c.sa(), 16, &tv);
         },
         "refused connect"},
        {Bare, CALL(tcp_srv_com, c.busyPort), "port taken"},
        {Bare, CALL(tcp_cli_com, "127.0.0.1", &c.closedPort, &c.number, 2), "refused twice"},
        {Bare, CALL(tcp_cli_com_enhance, "127.0.0.1", c.closedPortText, &c.number, 1),
         "refused"},
        {Bare, CALL(kv_find_last_string, nullptr, "/"), "null text"},
        {Bare, CALL(kv_div_string, c.work, "=", ";", c.text2, 16), "marker missing"},

        // ---- Network utility socket family --------------------------------------------------
        {Bare, CALL(readn, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(writen, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(rtspserver_writen, c.closedFd, c.text, 8), "closed descriptor"},
        {Bare, CALL(send_data_insmall_packet, c.closedFd, c.text, 8u, 4u), "closed descriptor"},
        {Bare, CALL(ip_connect_withtimeout, "127.0.0.1", c.closedPort, 100), "refused"},
        {Bare, CALL(ip_connect_withtimeout, "127.0.0.1", c.closedPort, -1), "refused, blocking"},
        {Bare, CALL(tcp_bind_connect, "127.0.0.1", c.closedPort, "bad", 0, 0),
         "every bind fails"},
        {Bare, CALL(tcp_bind_connect, "127.0.0.1", c.closedPort, "127.0.0.1", 0, 0),
         "three refused connects"},
        {Bare, CALL(tcp_bind_connect, "127.0.0.1", c.closedPort, "127.0.0.1", c.busyPort, 1),
         "local port taken"},
        {Bare, CALL(udp_bind_connect, "127.0.0.1", 9, "bad", 0), "every bind fails"},
        {Bare, CALL(get_peer_addr, c.udp, &c.peer), "not connected"},
        {Bare, CALL(mcast_join, c.closedFd, &c.group, 1), "closed descriptor"},
        {Bare, CALL(mcast_join_ex, c.closedFd, c.groupSa(), "nosuch0"), "closed descriptor"},
        {Bare, CALL(mcast_leave, c.closedFd, &c.group, 0), "closed descriptor"},
        {Bare, CALL(mcast_leave_ex, c.closedFd, c.groupSa()), "closed descriptor"},
        {Bare, CALL(mcast_setloop, c.closedFd, 1), "closed descriptor"},
        {Bare, CALL(mcast_setloop_ex, c.closedFd, 1, AF_INET6), "closed descriptor"},
        {Bare, CALL(inet_ntoa_b, 0u, nullptr), "null buffer"},
        {Bare, CALL(socketaddr_tostr, nullptr), "null address"},
        {Bare, CALL(make_addr_bystring, AF_INET6, "bad", 80, c.scratchSa()), "text that does not convert"},
        {Bare, "socket_connect_withtimeout",
         [](Ctx &c) {
             OwnSocket s;
             (void)socket_connect_withtimeout(s.fd, c.sa(), 100);
         },
         "refused connect"},
        {Bare, "connect_with_timeout",
         [](Ctx &c) {
             OwnSocket s;
             struct timeval tv = {1, 0};
             (void)connect_with_timeout(s.fd, c.sa(), 16, &tv);
         },
         "refused connect"},
        {Bare, CALL(socket_sendto, c.closedFd, c.text, 8, c.sa()), "closed descriptor"},
        {Bare, CALL(socket_recvfrom, c.closedFd, c.text, 8, c.sa()), "closed descriptor"},
        {Bare, CALL(get_ipport), "plain"},
        {Bare, CALL(get_socket_family), "plain"},
        {Bare, CALL(socket_create, -1, SOCK_DGRAM, 0), "unknown family"},
        {Bare, CALL(socket_bind, c.closedFd, c.sa()), "closed descriptor"},
        {Bare, CALL(socket_listen, c.closedFd, 5), "closed descriptor"},
        {Bare, CALL(socket_accept_with_timeout, 0, nullptr, 0), "descriptor 0"},
        {Bare, CALL(socket_accept_with_timeout, c.listener, nullptr, 0), "time-out"},
        {Bare, CALL(socket_reuse, c.closedFd), "closed descriptor"},
        {Bare, CALL(set_socket_mcast_ttl, c.closedFd, 1), "closed descriptor"},
        {Bare, CALL(set_socket_linger, c.closedFd, 1, 0), "closed descriptor"},
        {Bare, CALL(set_socket_keeplive, c.closedFd, 1, 10, 4, 2), "closed descriptor"},

        // ---- UCI access layer ---------------------------------------------------------------
        {Bare, CALL(NET_GetUciNameByIfName, nullptr), "null name"},
        {Bare, "NET_CreatePackage",
         [](Ctx &) {
             struct uci_package *p = NET_CreatePackage("network");
             if (p != nullptr)
                 NET_FreePackage(p);
         },
         "missing package, retried once"},
        {Store, "NET_CreatePackage", [](Ctx &) { Loaded l; }, "loaded and freed"},
        {Bare, CALL(NET_FreePackage, nullptr), "null package"},
        {Store, "NET_UciCommit",
         [](Ctx &) {
             struct uci_package *p = NET_CreatePackage("network");
             (void)NET_UciCommit(p);
         },
         "nothing changed"},
        {Store, "NET_UciCommit",
         [](Ctx &) {
             struct uci_package *p = NET_CreatePackage("network");
             (void)NET_SetOption(NET_GetSection(p, "loopback"), "audit", "1");
             (void)NET_UciCommit(p);
         },
         "a change saved"},
        {Store, "NET_GetSection", [](Ctx &) { (void)NET_GetSection(Loaded().p, "nosuch"); },
         "missing section"},
        {Store, "NET_CreateAndGetSection",
         [](Ctx &) { (void)NET_CreateAndGetSection(Loaded().p, "interface", "added"); },
         "created, discarded"},
        {Store, "NET_DelSection", [](Ctx &) { (void)NET_DelSection(Loaded().s); },
         "deleted, discarded"},
        {Bare, CALL(NET_SetOption, nullptr, "a", "b"), "null section"},
        {Store, "NET_GetOption", [](Ctx &c) { (void)NET_GetOption(Loaded().s, "no", c.text, 16); },
         "missing option"},
        {Store, "NET_DelOption", [](Ctx &) { (void)NET_DelOption(Loaded().s, "no"); },
         "missing option"},
        {Bare, CALL(NET_SetUciList, nullptr, "dns", "x"), "null section"},
        {Store, "NET_DelUciList", [](Ctx &) { (void)NET_DelUciList(Loaded().s, "dns", "x"); },
         "value not held"},

        // ---- Address and DHCP mode configuration --------------------------------------------
        {Bare, CALL(NET_SetIpv4AddrCfg, "eth0", "10.0.0.1", "255.0.0.0"), "missing package"},
        {Store, CALL(NET_SetIpv4AddrCfg, "eth0", "10.0.0.1", "255.0.0.0"), "missing section"},
        {Bare, CALL(NET_SetIpv6AddrCfg, "eth0", "2001:db8::5", 64), "missing package"},
        {Store, CALL(NET_SetIpv6AddrCfg, "eth0", "2001:db8::5", 64), "missing section"},
        {Bare, CALL(NET_GetIpv6AddrCfg, "eth0", c.text), "missing package"},
        {Store, CALL(NET_GetIpv6AddrCfg, "eth0", c.text), "missing section"},
        {Bare, CALL(NET_IsDhcpMode, "eth0"), "missing package"},
        {Store, CALL(NET_IsDhcpMode, "eth0"), "missing section"},
        {Store, CALL(NET_IsDhcpv6Mode, "eth0"), "missing section"},
        {Bare, CALL(NET_EnableDhcpCfg, "eth0"), "missing package"},
        {Store, CALL(NET_EnableDhcpCfg, "eth0"), "missing section"},
        {Store, CALL(NET_DisableDhcpCfg, "eth0"), "missing section"},
        {Live, CALL(NET_DisableDhcpCfg, "lan1"), "switched and saved"},

        // ---- Service port, DDNS and PPPoE configuration -------------------------------------
        {Bare, CALL(NET_GetPortCfg, &c.portCfg), "missing package"},
        {Store, CALL(NET_GetPortCfg, &c.portCfg), "missing section"},
        {Bare, CALL(NET_SetPortCfg, c.portCfg), "missing package"},
        {Store, CALL(NET_SetPortCfg, c.portCfg), "missing section"},
        {Bare, CALL(NET_GetPortMappingCfg, 80, nullptr), "placeholder"},
        {Bare, CALL(NET_GetDdnsCfg, &c.ddns), "missing package"},
        {Store, CALL(NET_GetDdnsCfg, &c.ddns), "missing section"},
        {Store, CALL(NET_SetDdnsCfg, &c.ddns), "missing section"},
        {Bare, CALL(NET_GetPppoeCfg, &c.pppoe), "missing package"},
        {Store, CALL(NET_GetPppoeCfg, &c.pppoe), "missing section"},
        {Bare, CALL(NET_SetPppoeCfg, c.pppoe), "missing package"},
        {Store, CALL(NET_SetPppoeCfg, c.pppoe), "missing section"},

        // ---- Collision detection, MAC monitor, gratuitous ARP, ping ------------------------------
        {Bare, CALL(NET_DetectIpv4Collision, "nosuch0", "10.0.0.1", 0, &c.number),
         "missing interface"},
        {Live, CALL(NET_DetectIpv4Collision, "tap0", "10.0.0.1", 0, &c.number), "no address"},
        {Live, CALL(NET_DetectIpv4Collision, "lan1", "192.168.1.77", 0, &c.number),
         "sent, nobody answers"},
        {Bare, CALL(NET_DetectIpv6Collision, "nosuch0", "2001:db8::1", 0, &c.number),
         "missing interface, after the socket"},
        {Live, CALL(NET_DetectIpv6Collision, "lan1", "2001:db8::g", 0, &c.number),
         "text that does not convert, after the socket"},
        {Live, CALL(NET_DetectIpv6Collision, "lan1", "2001:db8::77", 0, &c.number),
         "sent, nobody answers"},
        {Bare, CALL(net_DetectMacCollisionThread, const_cast<char *>("eth0")),
         "no interface listed"},
        {Live, CALL(net_DetectMacCollisionThread, const_cast<char *>("wlan0")), "missing device"},
        {Live, "net_DetectMacCollisionThread", [](Ctx &) { run_and_cancel_monitor("lan1"); },
         "cancelled in its loop", 1},
        {Bare, CALL(NET_CreateMacCollThread, nullptr), "placeholder"},
        {Bare, CALL(NET_GetMacCollStatus, "eth0", &c.number), "never monitored"},
        {Bare, CALL(NET_SendGratuitousPack, ""), "empty name"},
        {Bare, CALL(NET_SendGratuitousPack, "nosuch0"), "missing interface"},
        {Live, CALL(NET_SendGratuitousPack, "tap0"), "no address"},
        {Live, CALL(NET_SendGratuitousPack, "lan1"), "sent"},
        {Bare, CALL(NET_Ping, "nosuch0", "10.0.0.1", &c.real), "missing interface"},
        {Live, CALL(NET_Ping, "lan1", "255.255.255.255", &c.real), "bad host, after the socket"},

        // ---- Network configuration model and subnet checks ----------------------------------
        {Bare, CALL(NET_SetEtherCfg, "eth0", &c.ether), "missing package"},
        {Store, CALL(NET_SetEtherCfg, "eth0", &c.ether), "missing section"},
        {Bare, CALL(NET_GetEtherCfg, "eth0", &c.ether), "missing package"},
        {Store, CALL(NET_GetEtherCfg, "eth0", &c.ether), "missing section"},
        {Live, CALL(NET_GetEtherCfg, "nosuch0", &c.ether),
         "live IPv6 list fails: the package is left open", 0, Need::MemoryLeakOk},
        {Live, CALL(NET_IsIpv4SubnetValid, "lan1", "10.0.0.1", "255.0.0.0"),
         "other interface not stored"},
        {Bare, CALL(NET_IsIpv6SubnetValid, "eth0", "2001:db8::5", 128), "prefix 128"},
        {Live, CALL(NET_IsIpv6SubnetValid, "lan1", "2001:db8::5", 64), "missing other interface"},
        {Bare, CALL(NET_IsIpv4SameSubnet, "nosuch0", "10.0.0.1"), "missing interface"},
        {Bare, CALL(NET_IsIpv6SameSubnet, "nosuch0", "2001:db8::5"), "missing interface"},
        {Bare, CALL(NET_IsSameNet, "10.0.0.1", &c.number), "missing first interface"},
        {Bare, CALL(NET_GetIfNameByIp, "bad", c.text, 16), "not an address"},
        {Bare, CALL(NET_GetIfNameByIp, "10.0.0.1", c.text, 16), "held by no interface"},
        {Bare, CALL(NET_GetIfNameByIp, "2001:db8::5", c.text, 16), "IPv6, held by none"},
        {Bare, CALL(NET_IsIpv6RouteAdviseAddr, "nosuch0", "2001:db8::5"), "missing interface"},
        {Live, CALL(NET_IsIpv6RouteAdviseAddr, "lan1", "2001:db8::10"), "compared"},

        // ---- DNS, route, MTU and gateway configuration; static routes -----------------------
        {Bare, CALL(NET_SetDnsCfg, "eth0", "192.0.2.1", nullptr), "missing package"},
        {Store, CALL(NET_SetDnsCfg, "eth0", "192.0.2.1", "192.0.2.2"), "missing section"},
        {Store, CALL(NET_DelDnsCfg, "eth0", "192.0.2.1", nullptr), "missing section"},
        {Bare, CALL(NET_SetRouteCfg, "eth0", "10.0.0.0", "255.0.0.0"), "missing package"},
        {Store, CALL(NET_SetRouteCfg, "eth0", "10.0.0.0", "255.0.0.0"), "stored"},
        {Store, CALL(NET_DelRouteCfg, "eth0", "10.1.0.0", "255.255.0.0"), "missing section"},
        {Bare, CALL(NET_SetMtuCfg, "eth0", 99), "out of range"},
        {Bare, CALL(NET_SetMtuCfg, "eth0", 1400), "missing package"},
        {Store, CALL(NET_SetMtuCfg, "eth0", 1400), "missing section"},
        {Store, CALL(NET_SetGatewayCfg, "eth0", "10.0.0.1"), "missing section"},
        {Store, CALL(NET_DelGatewayCfg, "eth0"), "missing section"},
        {Bare, CALL(NET_IPv4SetRoute, "nosuch0", "10.0.0.0", "255.0.0.0"), "missing interface"},
        {Live, CALL(NET_IPv4DelRoute, "lan1", "10.77.0.0", "255.255.0.0"),
         "refused: no such route"},
        {Bare, CALL(set_route1, "10.0.0.0", "255.0.0.0", 0, "nosuch0"), "missing interface"},
        {Bare, CALL(set_route, "10.0.0.0", "255.0.0.0", 0), "missing active interface"},

        // ---- Active interface and client ----------------------------------------------------
        {Bare, CALL(get_active_interface), "plain"},
        {Bare, CALL(set_active_interface, nullptr), "null name"},
        {Bare, CALL(get_active_clientip, nullptr), "null buffer"},
        {Bare, CALL(set_active_clientip, nullptr), "null address"},

        // ---- Configuration versions, old layout, roll-back, default card, LLDP --------------
        {Bare, CALL(NET_ConvertConfig), "missing package"},
        {Store, CALL(NET_ConvertConfig), "old layout whose interface section is missing"},
        {Bare, CALL(NET_GetOldEthCfg, &c.ether), "missing package"},
        {Store, CALL(NET_GetOldEthCfg, &c.ether), "missing section"},
        {Bare, CALL(NET_GetOldTcpipCfg, &c.ether), "missing package"},
        {Store, CALL(NET_GetOldTcpipCfg, &c.ether), "missing section"},
        {Store, CALL(NET_SetOldTcpipCfg, &c.ether), "written"},
        {Store, CALL(NET_SetOldUhttpdCfg, 80), "written"},
        {Bare, CALL(NET_GetOldPortCfg, &c.portCfg), "missing package"},
        {Store, CALL(NET_GetOldPortCfg, &c.portCfg), "missing section"},
        {Store, CALL(NET_SetOldPortCfg, &c.portCfg), "written"},
        {Bare, CALL(NET_GetOldDdnsCfg, &c.ddns), "missing package"},
        {Store, CALL(NET_GetOldDdnsCfg, &c.ddns), "missing section"},
        {Store, CALL(NET_SetOldDdnsCfg, &c.ddns), "written"},
        {Bare, CALL(NET_GetOldPppoeCfg, &c.pppoe), "missing package"},
        {Store, CALL(NET_GetOldPppoeCfg, &c.pppoe), "missing section"},
        {Store, CALL(NET_SetOldPppoeCfg, &c.pppoe), "written"},
        {Bare, CALL(NET_IsNetConfigBack, 3, &c.number), "unknown version"},
        {Bare, CALL(NET_IsNetConfigBack, 0, &c.number), "missing package"},
        {Store, CALL(NET_IsNetConfigBack, 0, &c.number), "no marker"},
        {Bare, CALL(NET_NetConfigBackToOld), "missing package"},
        {Bare, CALL(NET_NetBackToOldEthCfg, &c.ether), "missing package"},
        {Store, CALL(NET_NetBackToOldEthCfg, &c.ether), "missing section"},
        {Bare, CALL(NET_SetDefNetCard, "lan1"), "missing package"},
        {Store, CALL(NET_SetDefNetCard, "lan1"), "one interface: committed unchanged"},
        {Bare, CALL(NET_GetDefNetCard, 16, c.text), "missing package"},
        {Live, CALL(NET_GetDefNetCard, 16, c.text), "missing section"},
        {Bare, CALL(drv_net_GetIpcConfig, &c.ipc), "missing package"},
        {Bare, CALL(Net_LldpLinkUpCB), "plain"},
        {Bare, CALL(Net_LldpLinkDownCB), "no agent thread: the stop command"},
        {Bare, "Net_LldpSetThread",
         [](Ctx &) {
             pthread_t t;
             if (pthread_create(&t, nullptr, wait_for_cancel, nullptr) != 0)
                 return;
             (void)Net_LldpSetThread(static_cast<unsigned long>(t));
             (void)Net_LldpLinkDownCB();
             pthread_join(t, nullptr);
         },
         "a registered agent thread cancelled by the next link loss"},
        {Bare, CALL(NET_BackupCfgFile), "plain"},
        {Bare, CALL(NET_RestoreCfgFile), "plain"},

    };
    return table;
}

// The functions libnetwork.h exports, in the order it declares them.
std::vector<std::string> header_functions()
{
    std::ifstream in(sandbox::source_path("include/libnetwork.h"));
    std::vector<std::string> names;
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, 8, "NET_API ") != 0 || line.find("extern") != std::string::npos)
            continue;
        size_t open = line.find('(');
        if (open == std::string::npos)
            continue;
        size_t start = line.find_last_of(" *", open - 1) + 1;
        names.push_back(line.substr(start, open - start));
    }
    return names;
}

// Allocations of a scope are not reported as leaks (a package left open on purpose).
class LeaksAllowed
{
  public:
    explicit LeaksAllowed(bool on) : on_(on)
    {
#if defined(__SANITIZE_ADDRESS__)
        if (on_)
            __lsan_disable();
#endif
    }
    ~LeaksAllowed()
    {
#if defined(__SANITIZE_ADDRESS__)
        if (on_)
            __lsan_enable();
#endif
    }

  private:
    bool on_;
};

std::string config_section(const std::string &type, const std::string &name,
                           const std::vector<std::string> &options)
{
    std::string s = "\nconfig " + type + " '" + name + "'\n";
    for (const std::string &o : options)
        s += "\toption " + o + "\n";
    return s;
}

} // namespace

class Audit : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        memset(&c_.storage, 0, sizeof c_.storage);
        c_.listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        struct sockaddr_in a;
        memset(&a, 0, sizeof a);
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        ASSERT_EQ(0, bind(c_.listener, reinterpret_cast<sockaddr *>(&a), sizeof a));
        ASSERT_EQ(0, listen(c_.listener, 4));
        ASSERT_EQ(0, getsockname(c_.listener, reinterpret_cast<sockaddr *>(&a), &len));
        c_.busyPort = ntohs(a.sin_port);
        // A port that was just free: bound once, closed again.
        int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        a.sin_port = 0;
        ASSERT_EQ(0, bind(probe, reinterpret_cast<sockaddr *>(&a), sizeof a));
        ASSERT_EQ(0, getsockname(probe, reinterpret_cast<sockaddr *>(&a), &len));
        close(probe);
        c_.closedPort = ntohs(a.sin_port);
        c_.closedPortInt = c_.closedPort;
        snprintf(c_.closedPortText, sizeof c_.closedPortText, "%u", c_.closedPort);
        memcpy(&c_.storage, &a, sizeof a);
        c_.udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        c_.closedFd = dup(c_.udp);
        close(c_.closedFd);
        memset(&c_.group, 0, sizeof c_.group);
        c_.group.sin_family = AF_INET;
        inet_pton(AF_INET, "239.1.2.3", &c_.group.sin_addr);
        strcpy(c_.work, "key:value");
        ASSERT_GE(c_.udp, 0);
    }
    void TearDown() override
    {
        if (c_.udp >= 0)
            close(c_.udp);
        if (c_.listener >= 0)
            close(c_.listener);
    }

    // Runs the rows of a world, each measured on its own.
    void audit(World w)
    {
        bool noEthtool = sandbox::ethtool_emulated();
        int ran = 0;
        sandbox::LogCapture quiet; // the failure lines are the calls' business, not ours
        for (const Row &r : rows()) {
            if (r.world != w || (r.need == Need::Ethtool && noEthtool))
                continue;
            int before = sandbox::open_fd_count();
            {
                LeaksAllowed allowed(r.need == Need::MemoryLeakOk);
                r.call(c_);
            }
            EXPECT_EQ(before + r.leaks, sandbox::open_fd_count()) << r.fn << ": " << r.path;
            ++ran;
        }
        EXPECT_GT(ran, 0);
    }

    Ctx c_{};
};

TEST_F(Audit, EveryExportedFunctionHasARow)
{
    std::vector<std::string> declared = header_functions();
    ASSERT_GT(declared.size(), 200u) << "the header was not read";
    std::set<std::string> covered;
    for (const Row &r : rows())
        covered.insert(r.fn);
    std::string missing;
    for (const std::string &name : declared)
        if (covered.count(name) == 0)
            missing += " " + name;
    EXPECT_EQ("", missing) << "exported functions without a row in the audit table";
    std::set<std::string> known(declared.begin(), declared.end());
    for (const std::string &name : covered)
        EXPECT_EQ(1u, known.count(name)) << name << " is not declared in the header";
}

TEST_F(Audit, OnlyTheDeliberateExceptionsLeaveADescriptor)
{
    std::set<std::string> leaking;
    for (const Row &r : rows())
        if (r.leaks != 0)
            leaking.insert(r.fn);
    EXPECT_EQ((std::set<std::string>{"NET_SetSpeedDuplex", "net_DetectMacCollisionThread"}),
              leaking);
}

TEST_F(Audit, BareDevice)
{
    NET_Init();
    audit(World::Bare);
}

TEST_F(Audit, PackagesWithoutTheirSections)
{
    NET_Init();
    const std::string other = config_section("other", "other", {"x '1'"}) + "\n";
    sandbox::write_file(
        "/etc/config/network",
        config_section("interface", "loopback", {"ifname 'lo'", "proto 'static'"}) + "\n", 0600);
    for (const char *pkg : {"tcpip", "uhttpd", "ddns", "pppoe", "port"})
        sandbox::write_file(std::string("/etc/config/") + pkg, other, 0600);
    // A resolver file that can be opened for neither reading its lines nor writing.
    sandbox::must("rm -f /etc/resolv.conf && mkdir /etc/resolv.conf");
    audit(World::Store);
    sandbox::must("rmdir /etc/resolv.conf && touch /etc/resolv.conf");
}

TEST_F(Audit, LiveInterfacesAndRefusedRequests)
{
    sandbox::set_device("lan1,lan2");
    NET_Init();
    sandbox::veth("lan1", "nb1");
    sandbox::addr_add("lan1", "192.168.1.10/24");
    sandbox::addr_add("lan1", "2001:db8::10/64");
    sandbox::tap("tap0");
    sandbox::write_file(
        "/etc/config/network",
        config_section("interface", "lan1", {"proto 'dhcp'", "ipv4dhcp '1'", "ipv6dhcp '0'"}) +
            config_section("interface", "nosuch0",
                           {"proto 'static'", "ipv4dhcp '0'", "ipv6dhcp '0'"}) +
            config_section("interface", "nb1", {"proto 'static'", "ipv4dhcp '0'"}) + "\n",
        0600);
    audit(World::Live);
}
