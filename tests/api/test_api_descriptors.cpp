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
// To cover a new exported function, add its rows to the table below (or its name to
// kOpensNothing when no path of it opens anything); the coverage test fails while a function
// of the header has neither.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"
#include "../config/config_support.h"

// The client calls wait between attempts with sleep(); this process's sleep (the library's
// call binds to it) returns at once.
extern "C" unsigned int sleep(unsigned int)
{
    return 0;
}

namespace
{

// A missing package fails in NET_CreatePackage before anything is open: its own Bare row
// covers that path for every configuration call that also has a Store row.
// Where a row runs. Bare: a fresh one-interface device whose "eth0" does not exist, and no
// configuration at all. Store: the packages exist without the sections the calls want, and
// "/etc/resolv.conf" cannot be opened for writing. Live: a two-interface device with "lan1"
// (a veth end with addresses), "tap0" (no address, no carrier) and a few stored sections.
enum World { Bare, Store, Live };
// Ethtool: skipped where the emulator does not carry SIOCETHTOOL. MemoryLeakOk: leaves a
// package open on purpose, hidden from the leak checker.
enum Need { Nothing, Ethtool, MemoryLeakOk };

// What the calls work with, set up before any row is measured.
// clang-format off
struct Ctx {
    char text[256], text2[256], closedPortText[8];
    unsigned char bytes[64];
    int number, number2, closedPortInt;
    unsigned int u32;
    double real;
    NetSpeedDuplexMode mode;
    int listener = -1;            // a TCP listener on 127.0.0.1 that nobody connects to
    unsigned short busyPort, closedPort; // its port; a port nobody listens on
    NetIpv6AddrList v6list;
    NetIpv6AddrInfoList v6info;
    NetEtherCfg ether;
    NetPortCfg portCfg;
    NetDdnsCfg ddns;
    NetPppoeCfg pppoe;
    NetIpcConfig ipc;
    NetIfInfo ifs[4];
    NetDriverInterface drv;
    NetProbeResult probe;
    NetProbeOpts fastProbe = NET_PROBE_OPTS_FAST;
};
// clang-format on

struct Row {
    World world;
    const char *fn; // as the header declares it
    void (*call)(Ctx &);
    int leaks = 0; // descriptors left open on purpose
    Need need = Nothing;
};

// One call with the given arguments; `c` is the Ctx.
#define CALL(fn, ...)                                                                              \
#fn, [](Ctx &c) {                                                                              \
        (void)c;                                                                                   \
        (void)fn(__VA_ARGS__);                                                                     \
    }

const NetSpeedDuplexMode kBadMode = static_cast<NetSpeedDuplexMode>(6);

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

void create_table(Ctx &)
{
    NetDriverInterface *t = nullptr;
    if (createNetInterface(&t) == 0)
        free(t);
}

void commit_a_change(Ctx &)
{
    Loaded l;
    (void)NET_SetOption(l.s, "audit", "1");
    (void)NET_UciCommit(l.p);
    l.p = nullptr;
}

// An event descriptor opened, read once and closed: nothing of it may stay.
void events_round(Ctx &)
{
    int fd = NET_EventOpen(nullptr, NET_EVENT_ALL);
    NetEvent e;
    (void)NET_EventRead(fd, &e);
    (void)NET_EventClose(fd);
}

// A registered agent thread, cancelled by the next link loss.
void cancel_agent_on_link_loss(Ctx &)
{
    pthread_t t;
    if (pthread_create(&t, nullptr, wait_for_cancel, nullptr) != 0)
        return;
    (void)Net_LldpSetThread(static_cast<unsigned long>(t));
    (void)Net_LldpLinkDownCB();
    pthread_join(t, nullptr);
}

// Functions with no path that opens a descriptor: text and number work, argument checks,
// in-memory edits of a loaded package, placeholders, and calls that work only on the
// descriptor the caller passes (what an accept returns goes to the caller). A row would
// measure nothing.
const char kOpensNothing[] =
    "INET_Ipv4StrToNum INET_Ipv6StrToNum INET_Ipv4NumToStr INET_Ipv6NumToStr "
    "INET_IsIpaddrValid INET_IsIpv4AddrValid INET_IsIpv6AddrValid Inet_PtoN Inet_NtoP "
    "inet_pton_with_af inet_ntop_with_af is_string_ipaddr_ipv4 is_string_ipaddr_ipv6 "
    "is_stringip_multicast is_stringip_ipv6 is_ipaddr_lawful is_mask_valid is_ip_valid "
    "is_address_valid is_port_lawful is_domain_valid is_hostname_valid is_support_ipv6 "
    "convert_ipv6_prefix_netmask convert_ipv6_netmask_num check_str_ipv4 check_str_ipv6 "
    "is_port_legal is_stringipv6_multicast is_v6_addr_valid is_v6_mask_valid "
    "is_v6_addr_multicast Make_AddrbyString Socket_AddrtoStr Is_SupportIpv6 Get_IpPort "
    "Get_SocketFamily kv_find_last_string kv_div_string inet_pton_api inet_ntoa_b "
    "socketaddr_tostr make_addr_bystring get_ipport get_socket_family Is_IpV4Addr Is_IpV6Addr "
    "NET_GetIntfNames convert_ipv6str_tonum convert_ipv6num_tostr check_ipv6_valid "
    "set_active_interface get_active_clientip set_active_clientip get_active_interface "
    "NET_GetUciNameByIfName NET_FreePackage NET_SetOption NET_SetUciList NET_GetSection "
    "NET_CreateAndGetSection NET_DelSection NET_GetOption NET_DelOption NET_DelUciList "
    "NET_GetPortMapping NET_GetPortMappingCfg NET_CreateMacCollThread drv_net_SetIpv6Gateway "
    "Socket_AcceptWithTimeout Socket_Bind Socket_Close Socket_ConnectwithTimeout "
    "Socket_GetSockName Socket_GetSockOpt Socket_Listen Socket_Readn Socket_RecvFrom "
    "Socket_Reuse Socket_SendTo Socket_SetKeepLive Socket_SetLinger Socket_SetMcastTtl "
    "Socket_SetSockOpt Socket_Write Socket_WritetoFtp accept_api bind_api close_api "
    "close_nowait_api connect_api connect_with_timeout connectwithtimeout_api get_peer_addr "
    "getsockname_api getsockopt_api listen_api mcast_join mcast_join_ex mcast_leave "
    "mcast_leave_ex mcast_setloop mcast_setloop_ex readn readn_api rtspserver_writen "
    "send_data_insmall_packet set_socket_keeplive set_socket_linger set_socket_mcast_ttl "
    "setsockopt_api socket_accept_with_timeout socket_bind socket_listen socket_recvfrom "
    "socket_reuse socket_sendto write_api writen writen_api socket_connect_withtimeout "
    "createNetCfgInterface drv_net_GetEthName drv_net_SetDefaultEth drv_net_GetDefaultEth "
    "NET_GetMacCollStatus Net_LldpLinkUpCB NET_BackupCfgFile NET_RestoreCfgFile ";

const std::vector<Row> &rows()
{
    static const std::vector<Row> table = {
        {Bare, CALL(NET_Init)},
        {Bare, CALL(NET_GetInterfaces, c.ifs, 4)},
        {Bare, CALL(NET_GetMacAddr, "nosuch0", c.text, 32)},
        {Bare, CALL(NET_GetMacAddrNum, "nosuch0", c.bytes, 7)},
        {Bare, CALL(NET_IsPortUsed, c.busyPort)},
        {Bare, CALL(NET_Restart)},
        {Bare, CALL(NET_GetIpv4Addr, "nosuch0", c.text, 16)},
        {Live, CALL(NET_GetIpv4Addr, "tap0", c.text, 16)},
        {Bare, CALL(NET_SetIpv4Addr, "nosuch0", "10.0.0.1")},
        {Live, CALL(NET_SetIpv4Addr, "lan2", "192.168.1.10")},
        {Bare, CALL(NET_GetIpv4Mask, "nosuch0", c.text, 16)},
        {Bare, CALL(NET_SetIpv4Mask, "nosuch0", "255.0.0.0")},
        {Bare, CALL(NET_SetIpv4Gateway, "nosuch0", "0.0.0.0")},
        {Bare, CALL(NET_SetIpv4Gateway, "nosuch0", "10.0.0.1")},
        {Live, CALL(NET_SetIpv4Gateway, "lan1", "10.0.0.1")},
        {Live, CALL(NET_DelIpv4Gateway, "lan1", "192.168.1.1")},
        {Bare, CALL(NET_GetIpv4Gateway, "nosuch0", c.text, 16)},
        {Bare, CALL(NET_IPv4GetDefIfAddr, c.text, 16)},
        {Bare, CALL(NET_IPv4GetDefIfMask, c.text, 16)},
        {Bare, CALL(NET_IPv4SetDefGatway, "10.0.0.1")},
        {Bare, CALL(NET_IPv4DelDefGatway, "10.0.0.1")},
        {Bare, CALL(NET_IPv4GetDefGateway, c.text, 16)},
        {Bare, CALL(NET_IsBridge, "nosuch0")},
        {Bare, CALL(INET_IsIpv4AddrExist, "nosuch0", "10.0.0.1")},
        {Bare, CALL(NET_IPv4SetAddr, "eth0", "10.0.0.1", "255.0.0.0")},
        {Live, CALL(NET_IPv4SetAddr, "lan1", "192.168.1.20", "255.255.255.0")},
        {Live, CALL(NET_IPv4SetAddr, "nosuch0", "10.9.9.9", "255.0.0.0")},
        {Live, CALL(NET_IPv4SetAddr, "nb1", "10.8.8.8", "bad")},
        {Bare, CALL(NET_IntfUp, "nosuch0")},
        {Bare, CALL(NET_IntfDown, "nosuch0")},
        {Bare, CALL(NET_GetMtu, "nosuch0", &c.number)},
        {Bare, CALL(NET_SetMtu, "nosuch0", 1400)},
        {Bare, CALL(NET_GetPortLinkStatus, "nosuch0", &c.number)},
        {Bare, CALL(NET_GetSupportSpeed, "nosuch0", &c.mode)},
        {Bare, CALL(NET_SetSpeedDuplex, "nosuch0", kBadMode)},
        {Live, CALL(NET_SetSpeedDuplex, "tap0", kBadMode), 1, Ethtool},
        {Live, CALL(NET_SetSpeedDuplex, "tap0", NET_SPEED_DUPLEX_100_FULL), 0, Ethtool},
        {Bare, CALL(NET_GetSpeedDuplex, "nosuch0", &c.mode)},
        {Bare, CALL(get_mac_num, "nosuch0", c.bytes, 7)},
        {Bare, CALL(set_ipaddr, "nosuch0", "bad")},
        {Bare, CALL(set_ipaddr, "nosuch0", "10.0.0.1")},
        {Bare, CALL(set_netmask, "nosuch0", "255.0.0.0")},
        {Bare, CALL(set_gateway, "nosuch0", "10.0.0.1")},
        {Bare, CALL(del_gateway, "nosuch0", "10.0.0.1")},
        {Bare, CALL(set_mac, "nosuch0", "02:00:00:00:00:01")},
        {Bare, CALL(set_mtu, "nosuch0", 1400)},
        {Bare, CALL(get_mtu, "nosuch0", &c.number)},
        {Bare, CALL(get_ipaddr, "nosuch0", c.text, 16)},
        {Bare, CALL(get_netmask, "nosuch0", c.text, 16)},
        {Bare, CALL(get_broadcast_addr, "nosuch0", c.text, 16)},
        {Bare, CALL(get_ipaddr1, "nosuch0", &c.u32)},
        {Bare, CALL(get_mac, "nosuch0", c.text, 18)},
        {Bare, CALL(get_gateway, "nosuch0", c.text, 16)},
        {Bare, CALL(get_gateway_devname, c.text, 16)},
        {Bare, CALL(if_up, "nosuch0")},
        {Bare, CALL(if_down, "nosuch0")},
        {Bare, CALL(isSameSubnet, "10.0.0.1", "bad", "255.0.0.0")},
        {Bare, CALL(NET_GetIpv6AddrList, "nosuch0", &c.v6list)},
        {Live, CALL(NET_GetIpv6AddrList, "lan1", &c.v6list)},
        {Bare, CALL(NET_GetIpv6Prefix, "nosuch0", "20010db8000000000000000000000010", &c.number)},
        {Bare, CALL(NET_GetIpv6Gateway, "nosuch0", c.text, 46)},
        {Bare, CALL(NET_SetLocalIpv6Addr, "nosuch0", "2001:db8::5", 64)},
        {Live, CALL(NET_SetLocalIpv6Addr, "lan1", "2001:db8::5", 200)},
        {Bare, CALL(NET_AddIpv6Addr, "nosuch0", "2001:db8::5", 64)},
        {Live, CALL(NET_AddIpv6Addr, "lan1", "2001:db8::g", 64)},
        {Live, CALL(NET_DelIpv6Addr, "lan1", "2001:db8::99", 64)},
        {Bare, CALL(NET_GetDnsServer, "eth0", c.text, 16, c.text2, 16)},
        {Store, CALL(NET_GetDnsServer, "eth0", c.text, 16, c.text2, 16)},
        {Bare, CALL(NET_SetDnsServer, "eth0", "192.0.2.1", "0.0.0.0")},
        {Store, CALL(NET_SetDnsServer, "eth0", "192.0.2.1", nullptr)},
        {Bare, CALL(NET_EnableDnsServer, "eth0", nullptr, nullptr)},
        {Store, CALL(NET_EnableDnsServer, "eth0", "192.0.2.1", "192.0.2.2")},
        {Bare, CALL(net_GetExistNameserver, c.text, 128, c.text2, 128)},
        {Bare, CALL(create_resolv_file)},
        {Bare, CALL(NET_EnableDhcp, "eth0")},
        {Bare, CALL(NET_DisableDhcp, "eth0")},
        {Bare, CALL(add_ipv6_addr, "2001:db8::5", 64)},
        {Live, CALL(add_ipv6_addr, "bad", 64)},
        {Live, CALL(del_ipv6_addr, "2001:db8::99", 64)},
        {Bare, CALL(get_ipv6addr_num, "nosuch0", c.bytes, &c.number, c.bytes + 16, &c.number2)},
        {Live, CALL(get_ipv6addr_num, "lan1", c.bytes, &c.number, c.bytes + 16, &c.number2)},
        {Bare, CALL(get_ipv6_gateway_num, "nosuch0", c.bytes)},
        {Bare, CALL(get_route_ipv6_addrlist, "nosuch0", &c.v6info)},
        {Bare, CALL(get_one_right_ipv6_addr, "nosuch0", c.text, 64, &c.number)},
        {Bare, CALL(get_all_ipv6addr, "nosuch0", &c.v6info)},
        {Bare, CALL(get_dns, c.text, 16, c.text2, 16)},
        {Bare, "createNetInterface", create_table},
        {Store, "createNetInterface", create_table, 0, MemoryLeakOk},
        {Bare, CALL(drv_net_GetSetDefaultEthCB, &c.drv)},
        {Store, CALL(drv_net_GetSetDefaultEthCB, &c.drv), 0, MemoryLeakOk},
        {Bare, CALL(drv_net_SetHostIPEx, "nosuch0", "10.0.0.1", "255.0.0.0")},
        {Bare, CALL(drv_net_GetHostIPEx, "nosuch0", c.text, 16, c.text2, 16)},
        {Bare, CALL(drv_net_GetLinkStatus, "nosuch0")},
        {Bare, CALL(drv_net_CheckIpv4Collision, "nosuch0", "10.0.0.1", &c.number)},
        {Bare, CALL(drv_net_CheckIpv6Collision, "nosuch0", "2001:db8::1", &c.number)},
        {Bare, CALL(drv_net_GetIpv6Addr, "nosuch0", c.text, 64, &c.number)},
        {Live, CALL(drv_net_GetScopeGlobalAddr6, "lan1", c.text, 64, &c.number)},
        {Bare, CALL(drv_net_DelIpv6Address, "nosuch0", "2001:db8::5")},
        {Live, CALL(drv_net_DelIpv6Address, "lan1", "2001:db8::99")},
        {Bare, CALL(drv_net_GetIpv6AddrList, "nosuch0", &c.v6list)},
        {Bare, CALL(drv_net_SetSpeedDuplex, "nosuch0", kBadMode)},
        {Live, CALL(drv_net_SetSpeedDuplex, "tap0", static_cast<NetSpeedDuplexMode>(9)), 0,
         Ethtool},
        {Bare, CALL(drv_net_GetSpeedDuplex, "nosuch0", &c.mode)},
        {Bare, CALL(drv_net_GetMaxSupportSpeedx, "nosuch0", &c.mode)},
        {Bare, CALL(drv_net_GetDefNetCard, c.text, 16)},
        {Bare, CALL(update_active_interface)},
        {Bare, CALL(Socket_TcpSrvCom, c.busyPort)},
        {Bare, CALL(Socket_TcpCliCom, "127.0.0.1", &c.closedPortInt, &c.number, 2)},
        {Bare, CALL(Socket_Create, -1, SOCK_STREAM, 0)},
        {Bare, CALL(socket_api, -1, SOCK_STREAM, 0)},
        {Bare, CALL(tcp_srv_com, c.busyPort)},
        {Bare, CALL(tcp_cli_com, "127.0.0.1", &c.closedPort, &c.number, 2)},
        {Bare, CALL(tcp_cli_com_enhance, "127.0.0.1", c.closedPortText, &c.number, 1)},
        {Bare, CALL(ip_connect_withtimeout, "127.0.0.1", c.closedPort, 100)},
        {Bare, CALL(ip_connect_withtimeout, "127.0.0.1", c.closedPort, -1)},
        {Bare, CALL(tcp_bind_connect, "127.0.0.1", c.closedPort, "bad", 0, 0)},
        {Bare, CALL(tcp_bind_connect, "127.0.0.1", c.closedPort, "127.0.0.1", 0, 0)},
        {Bare, CALL(tcp_bind_connect, "127.0.0.1", c.closedPort, "127.0.0.1", c.busyPort, 1)},
        {Bare, CALL(udp_bind_connect, "127.0.0.1", 9, "bad", 0)},
        {Bare, CALL(socket_create, -1, SOCK_DGRAM, 0)},
        {Bare, "NET_CreatePackage", [](Ctx &) { Loaded l; }},
        {Store, "NET_CreatePackage", [](Ctx &) { Loaded l; }},
        {Store, "NET_UciCommit", [](Ctx &) { (void)NET_UciCommit(NET_CreatePackage("network")); }},
        {Store, "NET_UciCommit", commit_a_change},
        {Store, CALL(NET_SetIpv4AddrCfg, "eth0", "10.0.0.1", "255.0.0.0")},
        {Store, CALL(NET_SetIpv6AddrCfg, "eth0", "2001:db8::5", 64)},
        {Store, CALL(NET_GetIpv6AddrCfg, "eth0", c.text)},
        {Store, CALL(NET_IsDhcpMode, "eth0")},
        {Store, CALL(NET_IsDhcpv6Mode, "eth0")},
        {Store, CALL(NET_EnableDhcpCfg, "eth0")},
        {Store, CALL(NET_DisableDhcpCfg, "eth0")},
        {Live, CALL(NET_DisableDhcpCfg, "lan1")},
        {Store, CALL(NET_GetPortCfg, &c.portCfg)},
        {Store, CALL(NET_SetPortCfg, c.portCfg)},
        {Store, CALL(NET_GetDdnsCfg, &c.ddns)},
        {Store, CALL(NET_SetDdnsCfg, &c.ddns)},
        {Store, CALL(NET_GetPppoeCfg, &c.pppoe)},
        {Store, CALL(NET_SetPppoeCfg, c.pppoe)},
        {Bare, CALL(NET_DetectIpv4Collision, "nosuch0", "10.0.0.1", 0, &c.number)},
        {Live, CALL(NET_DetectIpv4Collision, "tap0", "10.0.0.1", 0, &c.number)},
        {Live, CALL(NET_DetectIpv4Collision, "lan1", "192.168.1.77", 0, &c.number)},
        {Bare, CALL(NET_DetectIpv6Collision, "nosuch0", "2001:db8::1", 0, &c.number)},
        {Live, CALL(NET_DetectIpv6Collision, "lan1", "2001:db8::g", 0, &c.number)},
        {Live, CALL(NET_DetectIpv6Collision, "lan1", "2001:db8::77", 0, &c.number)},
        {Bare, CALL(net_DetectMacCollisionThread, const_cast<char *>("eth0"))},
        {Live, CALL(net_DetectMacCollisionThread, const_cast<char *>("wlan0"))},
        {Live, "net_DetectMacCollisionThread", [](Ctx &) { run_and_cancel_monitor("lan1"); }, 1},
        {Bare, CALL(NET_SendGratuitousPack, "nosuch0")},
        {Live, CALL(NET_SendGratuitousPack, "tap0")},
        {Live, CALL(NET_SendGratuitousPack, "lan1")},
        {Bare, CALL(NET_ProbeIpv4, "nosuch0", "10.0.0.1", &c.fastProbe, &c.probe)},
        {Bare, CALL(NET_ProbeIpv4, "lo", "127.0.0.2", &c.fastProbe, &c.probe)},
        {Live, CALL(NET_ProbeIpv4, "tap0", "10.0.0.1", &c.fastProbe, &c.probe)},
        {Live, CALL(NET_ProbeIpv4, "lan1", "192.168.1.77", &c.fastProbe, &c.probe)},
        {Bare, CALL(NET_ProbeIpv6, "nosuch0", "2001:db8::1", &c.fastProbe, &c.probe)},
        {Live, CALL(NET_ProbeIpv6, "tap0", "2001:db8::1", &c.fastProbe, &c.probe)},
        {Live, CALL(NET_ProbeIpv6, "lan1", "2001:db8::77", &c.fastProbe, &c.probe)},
        {Bare, CALL(NET_AnnounceIpv4, "nosuch0", "10.0.0.1", &c.fastProbe)},
        {Live, CALL(NET_AnnounceIpv4, "tap0", "10.0.0.1", &c.fastProbe)},
        {Live, CALL(NET_AnnounceIpv4, "lan1", "192.168.1.77", &c.fastProbe)},
        {Live, "NET_EventOpen", events_round},
        {Bare, CALL(NET_EventRead, -1, nullptr)},
        {Bare, CALL(NET_EventClose, 12345)},
        {Bare, CALL(NET_CheckpointCreate, 0)},
        {Bare, CALL(NET_CheckpointCreate, 60)},
        {Bare, CALL(NET_CheckpointCreate, 60)},
        {Bare, "NET_CheckpointStatus", [](Ctx &) { NetCheckpoint s; (void)NET_CheckpointStatus(&s); }},
        {Bare, CALL(NET_CheckpointPoll, nullptr)},
        {Bare, CALL(NET_CheckpointRollback, nullptr)},
        {Bare, CALL(NET_CheckpointConfirm)},
        {Live, CALL(NET_CheckpointCreate, 60)},
        {Live, CALL(NET_CheckpointRollback, nullptr)},
        {Bare, CALL(NET_Ping, "nosuch0", "10.0.0.1", &c.real)},
        {Live, CALL(NET_Ping, "lan1", "255.255.255.255", &c.real)},
        {Store, CALL(NET_SetEtherCfg, "eth0", &c.ether)},
        {Store, CALL(NET_GetEtherCfg, "eth0", &c.ether)},
        {Live, CALL(NET_GetEtherCfg, "nosuch0", &c.ether), 0, MemoryLeakOk},
        {Live, CALL(NET_IsIpv4SubnetValid, "lan1", "10.0.0.1", "255.0.0.0")},
        {Live, CALL(NET_IsIpv6SubnetValid, "lan1", "2001:db8::5", 64)},
        {Bare, CALL(NET_IsIpv4SameSubnet, "nosuch0", "10.0.0.1")},
        {Bare, CALL(NET_IsIpv6SameSubnet, "nosuch0", "2001:db8::5")},
        {Bare, CALL(NET_IsSameNet, "10.0.0.1", &c.number)},
        {Bare, CALL(NET_GetIfNameByIp, "10.0.0.1", c.text, 16)},
        {Bare, CALL(NET_GetIfNameByIp, "2001:db8::5", c.text, 16)},
        {Bare, CALL(NET_IsIpv6RouteAdviseAddr, "nosuch0", "2001:db8::5")},
        {Live, CALL(NET_IsIpv6RouteAdviseAddr, "lan1", "2001:db8::10")},
        {Store, CALL(NET_SetDnsCfg, "eth0", "192.0.2.1", "192.0.2.2")},
        {Store, CALL(NET_DelDnsCfg, "eth0", "192.0.2.1", nullptr)},
        {Store, CALL(NET_SetRouteCfg, "eth0", "10.0.0.0", "255.0.0.0")},
        {Store, CALL(NET_DelRouteCfg, "eth0", "10.1.0.0", "255.255.0.0")},
        {Store, CALL(NET_SetMtuCfg, "eth0", 1400)},
        {Store, CALL(NET_SetGatewayCfg, "eth0", "10.0.0.1")},
        {Store, CALL(NET_DelGatewayCfg, "eth0")},
        {Bare, CALL(NET_IPv4SetRoute, "nosuch0", "10.0.0.0", "255.0.0.0")},
        {Live, CALL(NET_IPv4DelRoute, "lan1", "10.77.0.0", "255.255.0.0")},
        {Bare, CALL(set_route1, "10.0.0.0", "255.0.0.0", 0, "nosuch0")},
        {Bare, CALL(set_route, "10.0.0.0", "255.0.0.0", 0)},
        {Bare, CALL(NET_ConvertConfig)},
        {Store, CALL(NET_ConvertConfig)},
        {Store, CALL(NET_GetOldEthCfg, &c.ether)},
        {Store, CALL(NET_GetOldTcpipCfg, &c.ether)},
        {Store, CALL(NET_SetOldTcpipCfg, &c.ether)},
        {Store, CALL(NET_SetOldUhttpdCfg, 80)},
        {Store, CALL(NET_GetOldPortCfg, &c.portCfg)},
        {Store, CALL(NET_SetOldPortCfg, &c.portCfg)},
        {Store, CALL(NET_GetOldDdnsCfg, &c.ddns)},
        {Store, CALL(NET_SetOldDdnsCfg, &c.ddns)},
        {Store, CALL(NET_GetOldPppoeCfg, &c.pppoe)},
        {Store, CALL(NET_SetOldPppoeCfg, &c.pppoe)},
        {Store, CALL(NET_IsNetConfigBack, 0, &c.number)},
        {Bare, CALL(NET_NetConfigBackToOld)},
        {Store, CALL(NET_NetBackToOldEthCfg, &c.ether)},
        {Bare, CALL(NET_SetDefNetCard, "lan1")},
        {Store, CALL(NET_SetDefNetCard, "lan1")},
        {Bare, CALL(NET_GetDefNetCard, 16, c.text)},
        {Live, CALL(NET_GetDefNetCard, 16, c.text)},
        {Bare, CALL(drv_net_GetIpcConfig, &c.ipc)},
        {Bare, CALL(Net_LldpLinkDownCB)},
        {Bare, "Net_LldpSetThread", cancel_agent_on_link_loss},
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

} // namespace

class Audit : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        REQUIRE_SANDBOX();
        // A listener nobody connects to, and a port that was just free (bound once, closed).
        c_.listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        unsigned short *ports[] = {&c_.busyPort, &c_.closedPort};
        for (int fd : {c_.listener, probe}) {
            struct sockaddr_in a = {};
            a.sin_family = AF_INET;
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            socklen_t len = sizeof a;
            ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a));
            ASSERT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len));
            *ports[fd == probe] = ntohs(a.sin_port);
        }
        ASSERT_EQ(0, listen(c_.listener, 4));
        close(probe);
        c_.closedPortInt = c_.closedPort;
        snprintf(c_.closedPortText, sizeof c_.closedPortText, "%u", c_.closedPort);
    }
    void TearDown() override
    {
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
            if (r.world != w || (r.need == Ethtool && noEthtool))
                continue;
            int before = sandbox::open_fd_count();
            if (r.need == MemoryLeakOk) {
                cfgtest::LeakAllowed allowed;
                r.call(c_);
            } else {
                r.call(c_);
            }
            EXPECT_EQ(before + r.leaks, sandbox::open_fd_count())
                << r.fn << " (row " << (&r - rows().data()) << ")";
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
    for (const char *p = kOpensNothing; *p != '\0'; p = strchr(p, ' ') + 1)
        covered.insert(std::string(p, strchr(p, ' ')));
    std::string missing;
    for (const std::string &name : declared)
        if (covered.count(name) == 0)
            missing += " " + name;
    EXPECT_EQ("", missing) << "exported functions with neither a row nor a place in kOpensNothing";
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
    cfgtest::install({cfgtest::loopback()});
    for (const char *pkg : {"tcpip", "uhttpd", "ddns", "pppoe", "port"})
        sandbox::write_file(std::string("/etc/config/") + pkg, "config other 'other'\n", 0600);
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
    using cfgtest::opt;
    // clang-format off
    cfgtest::install({{"interface", "lan1", {opt("proto", "dhcp"), opt("ipv4dhcp", "1"), opt("ipv6dhcp", "0")}},
                      {"interface", "nosuch0", {opt("proto", "static"), opt("ipv4dhcp", "0"), opt("ipv6dhcp", "0")}},
                      {"interface", "nb1", {opt("proto", "static"), opt("ipv4dhcp", "0")}}});
    // clang-format on
    audit(World::Live);
}
