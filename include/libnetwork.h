/*
 * libnetwork: the network library of the camera.
 *
 * Plain C functions and records. Results are int 0 on success and -1 on failure unless a
 * function says otherwise. Records are filled through the caller's pointer; Get calls leave
 * the fields of absent settings unchanged, so zero a record before a Get call.
 */
#ifndef LIBNETWORK_H
#define LIBNETWORK_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define NET_API __attribute__((visibility("default")))
#else
#define NET_API
#endif

/* Compile-time layout checks usable from C99 and C++. */
#if defined(__cplusplus)
#define NET_LAYOUT_CHECK(cond, tag) static_assert(cond, #tag)
#else
#define NET_LAYOUT_CHECK(cond, tag) typedef char net_layout_check_##tag[(cond) ? 1 : -1]
#endif

/* ======================================================================================
 * Shared records
 * ====================================================================================== */

/* Interface names of the device: "eth0", or "lan1" and "lan2". */
typedef struct {
    int32_t iIfNum;        /* 1 or 2 */
    char szFirstName[16];  /* at most 15 characters */
    char szSecondName[16]; /* all zero when iIfNum is 1 */
} NetIfNames;

/* One interface as listed by NET_GetInterfaces; unreported fields stay zero. */
typedef struct {
    char szIfName[16];
    char szIpv4Addr[16];
    char szIpv4Mask[16];
    char szIpv4Broadcast[16]; /* or the peer address of a point-to-point link */
    char szIpv6Addr[46];
    char szIpv6Mask[46];
    unsigned char aucMac[6]; /* raw bytes */
} NetIfInfo;

/* The IPv6 addresses of one interface. */
typedef struct {
    char szAddr[64];
    int32_t iPrefixLen;
    unsigned char aucAddr[16]; /* network order */
} NetIpv6AddrEntry;

typedef struct {
    int32_t iNum;
    NetIpv6AddrEntry astAddr[32];
} NetIpv6AddrList;

/* Speed and duplex of a port; there is deliberately no 1000 Mbit/s half duplex. */
typedef enum {
    NET_SPEED_DUPLEX_AUTO = 0,
    NET_SPEED_DUPLEX_10_HALF = 1,
    NET_SPEED_DUPLEX_10_FULL = 2,
    NET_SPEED_DUPLEX_100_HALF = 3,
    NET_SPEED_DUPLEX_100_FULL = 4,
    NET_SPEED_DUPLEX_1000_FULL = 5
} NetSpeedDuplexMode;

/* One interface's stored settings. */
typedef struct {
    char szIfName[16];
    int32_t iCardType;
    int32_t iIpv4Mode; /* 1 DHCP, 0 static */
    int32_t iMtu;
    char szIpv4Addr[16];
    char szIpv4Mask[16];
    char szIpv4Gateway[16];
    int32_t iIpv6Mode; /* 1 static, 0 DHCPv6, 2 router advertisement */
    char szIpv6Addr[46];
    int32_t iIpv6PrefixLen;
    char szIpv6Gateway[46];
    char szDns1[16];
    char szDns2[16];
} NetEtherCfg;

/* Service ports and their port mapping. */
typedef struct {
    uint16_t usHttpPort;
    uint16_t usRtspPort;
    uint16_t usHttpsPort;
    uint16_t usSdcPort;   /* always 8000 on reading */
    uint16_t usSparePort; /* never read or written */
    uint16_t usPriSrvPort;
    int32_t iPortMapEnable;
    int32_t iPortMapMode; /* 0 standard external ports, other manual */
    char szAlias[65];
    uint16_t usExtHttpPort;
    uint16_t usExtRtspPort;
    uint16_t usExtHttpsPort;
    uint16_t usExtSdcPort;
    uint16_t usExtPriSrvPort;
} NetPortCfg;

typedef struct {
    int32_t iEnable;
    int32_t iType; /* provider type number */
    char szServerDomain[65];
    char szDdnsDomain[65];
    uint16_t usPort;
    char szUserName[33];
    char szPassword[17];
} NetDdnsCfg;

typedef struct {
    int32_t iEnable;
    char szInterface[16];
    char szUserName[33];
    char szPassword[17];
} NetPppoeCfg;

/* The device's network summary. */
typedef struct {
    int32_t iPortNum;           /* 1 or 2 */
    NetEtherCfg astEtherCfg[2]; /* the second only when iPortNum is 2 */
} NetIpcConfig;

/* ======================================================================================
 * Driver interface table: callers index it, so entry N is the N-th word, for good.
 * ====================================================================================== */

typedef void (*NetReservedFn)(void);

typedef struct {
    NetReservedFn pfnReserved1;                                               /* 1 */
    int (*pfnGetEthName)(char *pcEthName, unsigned int uiLen, int *piEthNum); /* 2 */
    int (*pfnGetMacAddr)(const char *pcIfName, char *pcMacAddr, unsigned int uiLen);
    int (*pfnSetMtu)(const char *pcIfName, int iMtuVal);  /* 4 */
    int (*pfnGetMtu)(const char *pcIfName, int *iMtuVal); /* 5 */
    int (*pfnSetHostIPEx)(const char *pcIfName, const char *pcIpAddr, const char *pcMask);
    int (*pfnGetHostIPEx)(const char *pcIfName, char *pcIpAddr, unsigned int uiIpLen, char *pcMask,
                          unsigned int uiMaskLen);                         /* 7 */
    int (*pfnSetIpv4Gateway)(const char *pcIfName, const char *pcGateway); /* 8 */
    int (*pfnGetIpv4Gateway)(const char *pcIfName, char *pcGateway, unsigned int uiLen);
    int (*pfnGetLinkStatus)(const char *pcIfName);                   /* 10 */
    int (*pfnGetDefNetCard)(char *pcNetDefCard, unsigned int uiLen); /* 11 */
    int (*pfnSetDefNetCard)(const char *pcNetDefCard);               /* 12 */
    int (*pfnDelIpv6Addr)(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen);
    int (*pfnAddIpv6Addr)(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen);
    int (*pfnGetIpv6Addr)(const char *pcIfName, char *pHostIp, unsigned int uiLen,
                          int *piIpv6Mask);                                /* 15 */
    int (*pfnSetIpv6Gateway)(const char *pcIfName, const char *pcGateway); /* 16 */
    int (*pfnGetIpv6Gateway)(const char *pcIfName, char *pstIpv6Gateway, unsigned int uiLen);
    NetReservedFn apfnNull18[28]; /* 18-45 */
    int (*pfnGetDnsServer)(const char *pcIfName, char *pcMaster, unsigned int uiMasterLen,
                           char *pcSlave, unsigned int uiSlaveLen); /* 46 */
    int (*pfnSetDnsServer)(const char *pcIfName, const char *pcMaster, const char *pcSlave);
    int (*pfnCheckIpv4Collision)(const char *pcIfName, const char *pcIpAddr,
                                 int *pbIsCollision); /* 48 */
    int (*pfnCheckIpv6Collision)(const char *pcIfName, const char *pcIpv6Addr,
                                 int *pbIsCollision); /* 49 */
    int (*pfnGetScopeGlobalAddr6)(const char *pcIfName, char *plinklocal, unsigned int uiLen,
                                  int *piIpv6Mask);                            /* 50 */
    int (*pfnSetSpeedDuplex)(const char *pcIfName, NetSpeedDuplexMode enMode); /* 51 */
    int (*pfnGetSpeedDuplex)(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode);
    int (*pfnGetMaxSupportSpeed)(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode);
    int (*pfnDelIpv4Gateway)(const char *pcIfName, const char *pcGateway); /* 54 */
    int (*pfnGetIpv6AddrList)(const char *pEthName, NetIpv6AddrList *pstIpv6AddrList);
    int (*pfnPing)(const char *pcIfName, const char *pcHost, double *pdTime);      /* 56 */
    int (*pfnIsIpv6RouteAdviseAddr)(const char *pcIfName, const char *pcIpv6Addr); /* 57 */
    NetReservedFn apfnReserved58[81];                                              /* 58-138 */
} NetDriverInterface;

/* ---- Layout checks: sizes and offsets that callers compile against ---- */
NET_LAYOUT_CHECK(sizeof(NetIfNames) == 36, if_names_size);
NET_LAYOUT_CHECK(sizeof(NetIfInfo) == 162, if_info_size);
NET_LAYOUT_CHECK(offsetof(NetIfInfo, aucMac) == 156, if_info_mac);
NET_LAYOUT_CHECK(sizeof(NetIpv6AddrEntry) == 84, ipv6_entry_size);
NET_LAYOUT_CHECK(sizeof(NetIpv6AddrList) == 4 + 32 * 84, ipv6_list_size);
NET_LAYOUT_CHECK(sizeof(NetSpeedDuplexMode) == 4, speed_duplex_size);
NET_LAYOUT_CHECK(offsetof(NetEtherCfg, iCardType) == 16, ether_cardtype);
NET_LAYOUT_CHECK(offsetof(NetEtherCfg, szIpv4Addr) == 28, ether_ipv4);
NET_LAYOUT_CHECK(offsetof(NetEtherCfg, iIpv6Mode) == 76, ether_ipv6mode);
NET_LAYOUT_CHECK(offsetof(NetEtherCfg, iIpv6PrefixLen) == 128, ether_prefix);
NET_LAYOUT_CHECK(offsetof(NetEtherCfg, szIpv6Gateway) == 132, ether_ipv6gw);
NET_LAYOUT_CHECK(offsetof(NetEtherCfg, szDns1) == 178, ether_dns1);
NET_LAYOUT_CHECK(sizeof(NetEtherCfg) == 212, ether_size);
NET_LAYOUT_CHECK(offsetof(NetPortCfg, usPriSrvPort) == 10, port_prisrv);
NET_LAYOUT_CHECK(offsetof(NetPortCfg, iPortMapEnable) == 12, port_enable);
NET_LAYOUT_CHECK(offsetof(NetPortCfg, szAlias) == 20, port_alias);
NET_LAYOUT_CHECK(offsetof(NetPortCfg, usExtHttpPort) == 86, port_exthttp);
NET_LAYOUT_CHECK(sizeof(NetPortCfg) == 96, port_size);
NET_LAYOUT_CHECK(offsetof(NetDdnsCfg, szServerDomain) == 8, ddns_server);
NET_LAYOUT_CHECK(offsetof(NetDdnsCfg, usPort) == 138, ddns_port);
NET_LAYOUT_CHECK(offsetof(NetDdnsCfg, szPassword) == 173, ddns_password);
NET_LAYOUT_CHECK(sizeof(NetDdnsCfg) == 192, ddns_size);
NET_LAYOUT_CHECK(offsetof(NetPppoeCfg, szUserName) == 20, pppoe_user);
NET_LAYOUT_CHECK(sizeof(NetPppoeCfg) == 72, pppoe_size);
NET_LAYOUT_CHECK(sizeof(NetIpcConfig) == 4 + 2 * 212, ipc_size);
NET_LAYOUT_CHECK(sizeof(NetDriverInterface) == 138 * sizeof(NetReservedFn), drv_size);
/* Entry N of the table is word N - 1: every named entry is pinned to its position. */
#define NET_DRV_ENTRY(field, n)                                                                    \
    NET_LAYOUT_CHECK(offsetof(NetDriverInterface, field) == ((n)-1) * sizeof(NetReservedFn),       \
                     drv_entry_##n)
NET_DRV_ENTRY(pfnReserved1, 1);
NET_DRV_ENTRY(pfnGetEthName, 2);
NET_DRV_ENTRY(pfnGetMacAddr, 3);
NET_DRV_ENTRY(pfnSetMtu, 4);
NET_DRV_ENTRY(pfnGetMtu, 5);
NET_DRV_ENTRY(pfnSetHostIPEx, 6);
NET_DRV_ENTRY(pfnGetHostIPEx, 7);
NET_DRV_ENTRY(pfnSetIpv4Gateway, 8);
NET_DRV_ENTRY(pfnGetIpv4Gateway, 9);
NET_DRV_ENTRY(pfnGetLinkStatus, 10);
NET_DRV_ENTRY(pfnGetDefNetCard, 11);
NET_DRV_ENTRY(pfnSetDefNetCard, 12);
NET_DRV_ENTRY(pfnDelIpv6Addr, 13);
NET_DRV_ENTRY(pfnAddIpv6Addr, 14);
NET_DRV_ENTRY(pfnGetIpv6Addr, 15);
NET_DRV_ENTRY(pfnSetIpv6Gateway, 16);
NET_DRV_ENTRY(pfnGetIpv6Gateway, 17);
NET_DRV_ENTRY(apfnNull18, 18);
NET_DRV_ENTRY(pfnGetDnsServer, 46);
NET_DRV_ENTRY(pfnSetDnsServer, 47);
NET_DRV_ENTRY(pfnCheckIpv4Collision, 48);
NET_DRV_ENTRY(pfnCheckIpv6Collision, 49);
NET_DRV_ENTRY(pfnGetScopeGlobalAddr6, 50);
NET_DRV_ENTRY(pfnSetSpeedDuplex, 51);
NET_DRV_ENTRY(pfnGetSpeedDuplex, 52);
NET_DRV_ENTRY(pfnGetMaxSupportSpeed, 53);
NET_DRV_ENTRY(pfnDelIpv4Gateway, 54);
NET_DRV_ENTRY(pfnGetIpv6AddrList, 55);
NET_DRV_ENTRY(pfnPing, 56);
NET_DRV_ENTRY(pfnIsIpv6RouteAdviseAddr, 57);
NET_DRV_ENTRY(apfnReserved58, 58);

/* ======================================================================================
 * Library frame and interface naming
 *   (src/link/init.cpp, interfaces.cpp, mac.cpp; NET_IsPortUsed: src/socket/port_used.cpp)
 * ====================================================================================== */

/* Name of the device's first interface: "eth0", "lan1" or "lan2" (set by NET_Init). */
NET_API extern const char *g_pcLan1Name;

/* Settles g_pcLan1Name from the capability library; call once before other threads. 0. */
NET_API int NET_Init(void);
/* Fills the device's interface names; -1 only for a null record. */
NET_API int NET_GetIntfNames(NetIfNames *pstIfNames);
/* Fills up to uiNum elements from the kernel's interface list (loopback left out);
 * returns how many it filled, 0 on failure. */
NET_API int NET_GetInterfaces(NetIfInfo *pstNetIfArray, unsigned int uiNum);
/* Hardware address as "%02X:%02X:%02X:%02X:%02X:%02X", cut to uiLen (still a success). */
NET_API int NET_GetMacAddr(const char *pcIfName, char *pcMacAddr, unsigned int uiLen);
/* The six raw bytes of the hardware address; uiLen must exceed 5. */
NET_API int NET_GetMacAddrNum(const char *pcIfName, unsigned char *pucMacAddr, unsigned int uiLen);
/* 1 when a TCP port is taken on this host, 0 when free or when it cannot be told. */
NET_API int NET_IsPortUsed(unsigned short usPort);
/* Runs "/etc/init.d/network restart" and waits; 0 when its status is 0. */
NET_API int NET_Restart(void);

/* ======================================================================================
 * IPv4 addressing
 *   (src/link/ipv4.cpp, gateway.cpp, default_if.cpp; NET_IPv4SetAddr: src/device/set_addr.cpp)
 * ====================================================================================== */

/* Address of an interface as dotted text (SIOCGIFADDR); silent for a down "wan-pppoe". */
NET_API int NET_GetIpv4Addr(const char *pcIfName, char *pcIpv4Addr, unsigned int uiLen);
/* Kernel only: sets the address (refused when the other port holds it). */
NET_API int NET_SetIpv4Addr(const char *pcIfName, const char *pcIpv4Addr);
/* Netmask of an interface as dotted text (SIOCGIFNETMASK). */
NET_API int NET_GetIpv4Mask(const char *pcIfName, char *pcIpv4Mask, unsigned int uiLen);
/* Kernel only: sets the netmask. */
NET_API int NET_SetIpv4Mask(const char *pcIfName, const char *pcIpv4Mask);
/* Adds a default route via pcGateway through the interface; "0.0.0.0" is a no-op success. */
NET_API int NET_SetIpv4Gateway(const char *pcIfName, const char *pcGateway);
/* Deletes that default route. */
NET_API int NET_DelIpv4Gateway(const char *pcIfName, const char *pcGateway);
/* The interface's default gateway from the route table; buffer untouched when none (0). */
NET_API int NET_GetIpv4Gateway(const char *pcIfName, char *pcGateway, unsigned int uiLen);
/* The same four on the default interface g_pcLan1Name ("Gatway" spelt so on purpose). */
NET_API int NET_IPv4GetDefIfAddr(char *pcIpv4Addr, unsigned int uiLen);
NET_API int NET_IPv4GetDefIfMask(char *pcIpv4Mask, unsigned int uiLen);
NET_API int NET_IPv4SetDefGatway(const char *pcGateway);
NET_API int NET_IPv4DelDefGatway(const char *pcGateway);
NET_API int NET_IPv4GetDefGateway(char *pcGateway, unsigned int uiLen);
/* 1 when the interface is a bridge, else 0. */
NET_API int NET_IsBridge(const char *pcIfName);
/* 1 when the interface holds exactly this address text, else 0. */
NET_API int INET_IsIpv4AddrExist(const char *pcIfName, const char *pcIpv4Addr);
/* The full change: refused when the other port holds the address or the port is in DHCP
 * mode; stores address and mask, then sets them in the kernel (no roll-back). */
NET_API int NET_IPv4SetAddr(const char *pcIfName, const char *pcIpv4Addr, const char *pcIpv4Mask);

/* ======================================================================================
 * Link control
 *   (src/link/link.cpp, ethtool.cpp; NET_GetPortMapping: src/config/ports.cpp)
 * ====================================================================================== */

/* Sets IFF_UP. */
NET_API int NET_IntfUp(const char *pcIfName);
/* Clears IFF_UP; refuses "lo". */
NET_API int NET_IntfDown(const char *pcIfName);
/* MTU of an interface. */
NET_API int NET_GetMtu(const char *pcIfName, int *iMtuVal);
/* Sets the MTU; only 100 to 1500. */
NET_API int NET_SetMtu(const char *pcIfName, int iMtuVal);
/* 1 through pbIsLinked when the port has a link (ETHTOOL_GLINK), else 0. */
NET_API int NET_GetPortLinkStatus(const char *pcDevName, int *pbIsLinked);
/* Best full-duplex speed the port advertises: 5 (1000) or 4 (100). */
NET_API int NET_GetSupportSpeed(const char *pcIfName, NetSpeedDuplexMode *penMode);
/* Forces a speed and duplex, or auto-negotiation (0). */
NET_API int NET_SetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode enMode);
/* The mode in force: 0 whenever auto-negotiation is on. */
NET_API int NET_GetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode *penMode);
/* Forwards to NET_GetPortMappingCfg with the port narrowed to 16 bits and the first value. */
NET_API int NET_GetPortMapping(int iPort, void *pvArg1, void *pvArg2, void *pvArg3);

/* ======================================================================================
 * Older direct-ioctl calls
 *   (src/link/older_ipv4.cpp)
 * ====================================================================================== */

/* Raw hardware address of an interface (not "lo") into pucMac (iLen > 5); 0 or -1. */
NET_API int get_mac_num(const char *pcIfName, unsigned char *pucMac, int iLen);
/* The older calls below use a stream socket, log nothing and return 0 or -1. */
/* Sets the address / netmask of an interface from dotted text (kernel only). */
NET_API int set_ipaddr(const char *pcIfName, const char *pcIpAddr);
NET_API int set_netmask(const char *pcIfName, const char *pcNetmask);
/* Adds / deletes the default route via pcGateway through the interface. */
NET_API int set_gateway(const char *pcIfName, const char *pcGateway);
NET_API int del_gateway(const char *pcIfName, const char *pcGateway);
/* Sets the hardware address from "aa:bb:cc:dd:ee:ff". */
NET_API int set_mac(const char *pcIfName, const char *pcMac);
/* Sets / reads the MTU (no range check beyond a positive value). */
NET_API int set_mtu(const char *pcIfName, int iMtu);
NET_API int get_mtu(const char *pcIfName, int *piMtu);
/* Address, netmask and broadcast address as dotted text into iLen bytes. */
NET_API int get_ipaddr(const char *pcIfName, char *pcIpAddr, int iLen);
NET_API int get_netmask(const char *pcIfName, char *pcNetmask, int iLen);
NET_API int get_broadcast_addr(const char *pcIfName, char *pcBroadcast, int iLen);
/* Address as a number in network byte order. */
NET_API int get_ipaddr1(const char *pcIfName, unsigned int *puiAddr);
/* Hardware address as "%02X:%02X:%02X:%02X:%02X:%02X"; iLen must be at least 18. */
NET_API int get_mac(const char *pcIfName, char *pcMac, int iLen);
/* Default gateway of the interface from the route table; -1 when it has none. */
NET_API int get_gateway(const char *pcIfName, char *pcGateway, int iLen);
/* Interface of the first default route; -1 when there is none. */
NET_API int get_gateway_devname(char *pcIfName, int iLen);
/* Sets / clears IFF_UP (no refusal of "lo"). */
NET_API int if_up(const char *pcIfName);
NET_API int if_down(const char *pcIfName);
/* 1 when both addresses lie in one subnet of the mask, 0 when not, -1 for bad text. */
NET_API int isSameSubnet(const char *pcIpAddr1, const char *pcIpAddr2, const char *pcNetmask);

/* ======================================================================================
 * IPv6 addressing
 *   (src/link/ipv6_list.cpp, ipv6_gateway.cpp, ipv6_addr.cpp)
 * ====================================================================================== */

/* The interface's IPv6 addresses, link-local left out, at most 32; each prefix length is the
 * covering route's when the route table has one. */
NET_API int NET_GetIpv6AddrList(const char *pcIfName, NetIpv6AddrList *pstIpv6AddrList);
/* Prefix length of the interface's route covering pcIpv6Addr (32 hexadecimal digits, compared
 * in whole digits); *piPrefix is left as it was when none does. 0, or -1. */
NET_API int NET_GetIpv6Prefix(const char *pcIfName, const char *pcIpv6Addr, int *piPrefix);
/* Next hop of the interface's default route as text (link-local included); -1 when none. */
NET_API int NET_GetIpv6Gateway(const char *pcIfName, char *pstIpv6Gateway, unsigned int uiLen);
/* Adds an address with the prefix length as given (no range check). */
NET_API int NET_SetLocalIpv6Addr(const char *pcIfName, const char *pcIpv6Addr, int iPrefixLen);
/* Adds an address; the prefix length must be 3 to 127. */
NET_API int NET_AddIpv6Addr(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen);
/* Removes an address; the prefix length must be 3 to 127. */
NET_API int NET_DelIpv6Addr(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen);

/* ======================================================================================
 * DNS resolver file and DHCP switching
 *   (src/link/resolv.cpp; DHCP: src/config/dhcp.cpp)
 * ====================================================================================== */

/* The servers of the interface's block in "/etc/resolv.conf", cut to the lengths and NOT
 * terminated (pass zeroed buffers); untouched when there is no block. 0, or -1. */
NET_API int NET_GetDnsServer(const char *pcIfName, char *pcMaster, unsigned int uiMasterLen,
                             char *pcSlave, unsigned int uiSlaveLen);
/* NET_EnableDnsServer, logging "set dns err" when it fails. */
NET_API int NET_SetDnsServer(const char *pcIfName, const char *pcMaster, const char *pcSlave);
/* Rewrites "/etc/resolv.conf" with the interface's new servers, keeping the other block. */
NET_API int NET_EnableDnsServer(const char *pcIfName, const char *pcMaster, const char *pcSlave);
/* The present server lines of the first interface and of "lan2" as "nameserver" lines. */
NET_API int net_GetExistNameserver(char *pcNameserver1, unsigned int uiLen1, char *pcNameserver2,
                                   unsigned int uiLen2);
/* Kept for old callers: touches no file. 0. */
NET_API int create_resolv_file(void);
/* Stores DHCP mode for the interface; it takes effect on the next network restart. */
NET_API int NET_EnableDhcp(const char *pcIfName);
/* Stores a static address mode for the interface; it takes effect on the next restart. */
NET_API int NET_DisableDhcp(const char *pcIfName);

/* ======================================================================================
 * Older IPv6 calls
 *   (src/link/older_ipv6.cpp, ipv6_addr.cpp, ipv6_list.cpp)
 * ====================================================================================== */

/* One IPv6 address as the kernel lists it. */
typedef struct {
    unsigned char aucAddr[16]; /* network order */
    int32_t iPrefixLen;
    int32_t iScope;
    int32_t iFlags; /* 0 for an address learned from a router advertisement */
} NetIpv6AddrInfo;

typedef struct {
    int32_t iNum;
    NetIpv6AddrInfo astAddr[32];
} NetIpv6AddrInfoList;

NET_LAYOUT_CHECK(sizeof(NetIpv6AddrInfo) == 28, ipv6_info_size);
NET_LAYOUT_CHECK(sizeof(NetIpv6AddrInfoList) == 4 + 32 * 28, ipv6_info_list_size);

/* Adds an address (prefix length 3 to 127) to the first interface; logs nothing. */
NET_API int add_ipv6_addr(const char *pcIpv6Addr, int iPrefixLen);
/* Removes an address from the first interface; logs nothing. */
NET_API int del_ipv6_addr(const char *pcIpv6Addr, int iPrefixLen);
/* The interface's first two addresses (16 bytes each) with their prefixes; 0 when any. */
NET_API int get_ipv6addr_num(const char *pcIfName, unsigned char *pucAddr1, int *piPrefix1,
                             unsigned char *pucAddr2, int *piPrefix2);
/* Next hop (16 bytes, zero when none) of the first default route not via link-local; 0 found. */
NET_API int get_ipv6_gateway_num(const char *pcIfName, unsigned char *pucGateway);
/* The addresses whose kernel flags are 0, count first; returns the count (-1 null). */
NET_API int get_route_ipv6_addrlist(const char *pcIfName, NetIpv6AddrInfoList *pstList);
/* 32 hexadecimal digits (the kernel tables' form) to 16 bytes; 0, or -1. */
NET_API int convert_ipv6str_tonum(const char *pcStr, unsigned char *pucAddr);
/* 16 bytes to 32 lower-case hexadecimal digits and a terminator (iLen > 32); 0, or -1. */
NET_API int convert_ipv6num_tostr(const unsigned char *pucAddr, char *pcStr, int iLen);
/* 0 when the text is an IPv6 address fit to configure (not link-local, ::, ::1), else -1. */
NET_API int check_ipv6_valid(const char *pcIpv6Addr);
/* The interface's first listed address fit to configure, as text, and its prefix; 0, or -1. */
NET_API int get_one_right_ipv6_addr(const char *pcIfName, char *pcIpv6Addr, unsigned int uiLen,
                                    int *piPrefix);
/* Every IPv6 address of the interface (link-local too), at most 32; the count, or -1. */
NET_API int get_all_ipv6addr(const char *pcIfName, NetIpv6AddrInfoList *pstList);
/* The first interface's DNS servers, terminated within the lengths; 0, or -1. */
NET_API int get_dns(char *pcDns1, unsigned int uiLen1, char *pcDns2, unsigned int uiLen2);

/* ======================================================================================
 * Driver interface table and its adapters
 *   (src/compat/driver_table.cpp, drv_adapters.cpp)
 * ====================================================================================== */

/* The four configuration readers of createNetCfgInterface, in this order. */
typedef struct {
    int (*pfnGetDdnsCfg)(NetDdnsCfg *pstDdnsCfg);
    int (*pfnGetPppoeCfg)(NetPppoeCfg *pstPppoeCfg);
    int (*pfnGetPortCfg)(NetPortCfg *pstPortCfg);
    int (*pfnGetIpcConfig)(NetIpcConfig *pstIpcConfig);
} NetCfgInterface;
NET_LAYOUT_CHECK(sizeof(NetCfgInterface) == 4 * sizeof(NetReservedFn), cfg_if_size);

/* Allocates the runtime table (caller frees it with free), calls NET_Init, fills it. */
NET_API int createNetInterface(NetDriverInterface **ppstDrvIf);
/* Fills the caller's four configuration readers; -1 for null. */
NET_API int createNetCfgInterface(NetCfgInterface *pstCfgIf);
/* Entries 11 and 12: the present pair when the "network" package loads, else the older. */
NET_API int drv_net_GetSetDefaultEthCB(NetDriverInterface *pstDrvIf);
/* All interface names joined by "::" (cut to uiLen) and their count. */
NET_API int drv_net_GetEthName(char *pcEthName, unsigned int uiLen, int *piEthNum);
/* Kernel-only address and mask; then address and mask read back. */
NET_API int drv_net_SetHostIPEx(const char *pcIfName, const char *pcIpAddr, const char *pcMask);
NET_API int drv_net_GetHostIPEx(const char *pcIfName, char *pcIpAddr, unsigned int uiIpLen,
                                char *pcMask, unsigned int uiMaskLen);
/* 0 when the link is up, -1 when down or unreadable. */
NET_API int drv_net_GetLinkStatus(const char *pcIfName);
/* The probes with the fixed time-outs 500 (IPv4) and 2 (IPv6). */
NET_API int drv_net_CheckIpv4Collision(const char *pcIfName, const char *pcIpAddr,
                                       int *pbIsCollision);
NET_API int drv_net_CheckIpv6Collision(const char *pcIfName, const char *pcIpv6Addr,
                                       int *pbIsCollision);
/* First listed non-link-local address not / exactly from router advertisement. */
NET_API int drv_net_GetIpv6Addr(const char *pcIfName, char *pHostIp, unsigned int uiLen,
                                int *piIpv6Mask);
NET_API int drv_net_GetScopeGlobalAddr6(const char *pcIfName, char *plinklocal, unsigned int uiLen,
                                        int *piIpv6Mask);
/* Deletes the address only when the current one begins with it. */
NET_API int drv_net_DelIpv6Address(const char *pcIfName, const char *pcIpv6Addr);
/* The interface's address list, entry by entry (text and prefix). */
NET_API int drv_net_GetIpv6AddrList(const char *pEthName, NetIpv6AddrList *pstIpv6AddrList);
/* Does nothing; 0. */
NET_API int drv_net_SetIpv6Gateway(const char *pcIfName, const char *pcGateway);
/* Speed and duplex with modes outside 1 to 5 normalised to auto (0). */
NET_API int drv_net_SetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode enMode);
NET_API int drv_net_GetSpeedDuplex(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode);
NET_API int drv_net_GetMaxSupportSpeedx(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode);
/* NET_GetDefNetCard with the buffer first. */
NET_API int drv_net_GetDefNetCard(char *pcNetDefCard, unsigned int uiLen);
/* The older default card in g_szDefNetCard (15 characters); -2 for null. */
NET_API int drv_net_SetDefaultEth(const char *pcNetDefCard);
NET_API int drv_net_GetDefaultEth(char *pcNetDefCard, unsigned int uiLen);
/* The active interface becomes "lan2" when the client address lies in its subnet. */
NET_API int update_active_interface(void);

/* ======================================================================================
 * Address conversion
 *   (src/inet/convert.cpp, valid.cpp)
 * ====================================================================================== */
/* IPv4 text to 4 bytes (network order) with the C library: 0, -1 not an address, -2 null. */
NET_API int INET_Ipv4StrToNum(const char *pcStr, void *pvAddr);
/* IPv6 text to 16 bytes (network order) with the C library: 0, -1 not an address, -2 null. */
NET_API int INET_Ipv6StrToNum(const char *pcStr, void *pvAddr);
/* 4 bytes to dotted text in uiLen bytes: 0, -1 buffer too small, -2 null. */
NET_API int INET_Ipv4NumToStr(const void *pvAddr, char *pcBuf, unsigned int uiLen);
/* 16 bytes to IPv6 text in uiLen bytes: 0, -1 buffer too small, -2 null. */
NET_API int INET_Ipv6NumToStr(const void *pvAddr, char *pcBuf, unsigned int uiLen);
/* 1 when the text is an IPv4 address or a configurable IPv6 address, else 0. */
NET_API int INET_IsIpaddrValid(const char *pcStr);
/* 1 when the text is a dotted IPv4 address (strict), else 0 (also for null). */
NET_API int INET_IsIpv4AddrValid(const char *pcStr);
/* 1 when the text is an IPv6 address fit to configure (not fe80.../FE80..., ::, ::1), else 0. */
NET_API int INET_IsIpv6AddrValid(const char *pcStr);
/* Our own text parser for family 2 or 10: 1 parsed, 0 not; an unknown family gives 1. */
NET_API int Inet_PtoN(int iAf, const char *pcSrc, void *pvDst);
/* Our own formatter for family 2 or 10 into uiSize bytes: pcDst, or null (too small, unknown). */
NET_API char *Inet_NtoP(int iAf, const void *pvSrc, char *pcDst, unsigned int uiSize);
/* Text to binary for family 2, or 10 while IPv6 is supported: 0, or -1 (also null, size < 1). */
NET_API int inet_pton_with_af(int iAf, const char *pcSrc, void *pvDst, int iSize);
/* Binary to text (IPv4 text cut and unterminated at iSize - 1 characters): pcDst or null. */
NET_API char *inet_ntop_with_af(int iAf, const void *pvSrc, char *pcDst, int iSize);
/* 1 when the text is an IPv4 address, stored in *puiAddr (network order) when not null. */
NET_API int is_string_ipaddr_ipv4(const char *pcStr, uint32_t *puiAddr);
/* 1 when the text is an IPv6 address, stored in the 16 bytes at pvAddr (required); else 0. */
NET_API int is_string_ipaddr_ipv6(const char *pcStr, void *pvAddr);
/* 1 for a usable IPv4 multicast group text (224.0.0.19 up to 239.x) or 0.0.0.0, else 0. */
NET_API int is_stringip_multicast(const char *pcStr, uint32_t *puiAddr);
/* 1 when the first 39 characters hold two colons (a shape test only), else 0. */
NET_API int is_stringip_ipv6(const char *pcStr);

/* ======================================================================================
 * Address, mask, port and name lawfulness checks
 *   (src/inet/lawful.cpp)
 * ====================================================================================== */
/* 1 when the dotted text is lawful: 0.0.0.0, or four parts up to 255 not ending in .0. */
NET_API int is_ipaddr_lawful(const char *pcIpAddr);
/* 1 for a netmask (network order) of prefix length 1 to 30, else 0. */
NET_API int is_mask_valid(uint32_t uiMask);
/* 1 when the address is 0, or neither network nor broadcast under the mask and unicast. */
NET_API int is_ip_valid(uint32_t uiAddr, uint32_t uiMask);
/* 1 when the address (network order) is 0 or its first octet is 1-223 except 127. */
NET_API int is_address_valid(uint32_t uiAddr);
/* 1 when the low 16 bits of the port are not 0. */
NET_API int is_port_lawful(unsigned int uiPort);
/* 1 for an empty or lawful domain name (up to 64 characters), else 0. */
NET_API int is_domain_valid(const char *pcDomain);
/* 1 for an empty or lawful host name (up to 255 characters), else 0. */
NET_API int is_hostname_valid(const char *pcHostName);
/* Whether the library serves IPv6: always 1. */
NET_API int is_support_ipv6(void);
/* 16-byte netmask of a prefix length (0 to 127) into pvMask: 0, or -1. */
NET_API int convert_ipv6_prefix_netmask(unsigned int uiPrefix, void *pvMask);
/* Leading one bits of a 16-byte netmask (0 to 128), or -1 for null. */
NET_API int convert_ipv6_netmask_num(const void *pvMask);

/* ======================================================================================
 * Older string validators
 *   (src/inet/older_checks.cpp)
 * ====================================================================================== */
/* 0 when the text is an IPv4 address, else -1. */
NET_API int check_str_ipv4(const char *pcStr);
/* 0 when the text is an IPv6 address, else -1. */
NET_API int check_str_ipv6(const char *pcStr);
/* 1 for a port number of 1 to 65535, else 0. */
NET_API int is_port_legal(int iPort);
/* 1 for an IPv6 multicast group text (ff00::/8) or :: (no group), stored in pvAddr; else 0. */
NET_API int is_stringipv6_multicast(const char *pcStr, void *pvAddr);
/* 1 for an IPv6 address text fit to configure, as INET_IsIpv6AddrValid; else 0. */
NET_API int is_v6_addr_valid(const char *pcStr);
/* 1 for an IPv6 netmask text of leading ones only (prefix 1 to 128), else 0. */
NET_API int is_v6_mask_valid(const char *pcMask);
/* 1 for an IPv6 multicast address text (ff00::/8), else 0. */
NET_API int is_v6_addr_multicast(const char *pcStr);

/* ======================================================================================
 * Socket helper family (Socket_)
 *   (src/socket/helper*.cpp; Is_IpV4Addr, Is_IpV6Addr: src/inet/valid.cpp)
 * ====================================================================================== */
/* Socket addresses are handled as 28-byte storage (an IPv6 socket address); the family
 * field at its start decides whether 16 (IPv4) or 28 bytes are handed to the kernel.
 * Failure values are deliberately mixed: several calls return 1, not -1, on failure. */
struct sockaddr;
struct sockaddr_in;
struct timeval;

/* Reads exactly iLen bytes (10 s per wait); fewer only when the peer closes; -1 on a time-out
 * or error, dropping what was already read. */
NET_API int Socket_Readn(int iSock, void *pBuf, int iLen);
/* Sends the whole buffer (no SIGPIPE); iLen, or -1. */
NET_API int Socket_Write(int iSock, void *pBuf, int iLen);
/* Socket_Write after a 10 s send time-out is set and the socket is writable within 5 s; -1. */
NET_API int Socket_WritetoFtp(int iSock, void *pBuf, int iLen);
/* Connect within iTimeoutMs (-1: blocking): 0; -1 immediate refusal; 1 bad arguments,
 * time-out or failed connect. The socket is blocking again afterwards. */
NET_API int Socket_ConnectwithTimeout(int iSock, const struct sockaddr *pstAddr, int iTimeoutMs);
/* Accept within iTimeoutMs (-1: no limit); pstAddr (28 bytes) may be null; socket or -1.
 * Descriptor 0 is refused. */
NET_API int Socket_AcceptWithTimeout(int iSock, struct sockaddr *pstAddr, int iTimeoutMs);
/* Listening IPv4 TCP socket on every address and iPort (backlog 24), or 1. */
NET_API int Socket_TcpSrvCom(int iPort);
/* Connects to pcIpAddr:*piPort (5 ms each, 5 s apart, iRetry attempts; 0 without limit):
 * 0 with *piSock set, or 1. */
NET_API int Socket_TcpCliCom(const char *pcIpAddr, int *piPort, int *piSock, int iRetry);
/* Sets SO_KEEPALIVE, TCP_KEEPIDLE, TCP_KEEPINTVL and TCP_KEEPCNT; failures go to stdout. */
NET_API void Socket_SetKeepLive(int iSock, int iOnOff, int iIdle, int iInterval, int iCount);
/* Fills a 28-byte socket address from text (null: wildcard) and port: 0; -1 bad text
 * (255.255.255.255 included); 1 null storage or unknown family without text. */
NET_API int Make_AddrbyString(int iFamily, const char *pcAddr, unsigned short usPort,
                              struct sockaddr *pstAddr);
/* getsockopt: 0, or 1. */
NET_API int Socket_GetSockOpt(int iSock, int iLevel, int iOpt, void *pVal, unsigned int *puiLen);
/* setsockopt: 0, or 1. */
NET_API int Socket_SetSockOpt(int iSock, int iLevel, int iOpt, const void *pVal,
                              unsigned int uiLen);
/* getsockname: 0, or 1. */
NET_API int Socket_GetSockName(int iSock, struct sockaddr *pstAddr, unsigned int *puiLen);
/* SO_REUSEADDR on; the setsockopt result. */
NET_API int Socket_Reuse(int iSock);
/* IPv4 multicast TTL; the setsockopt result. */
NET_API int Socket_SetMcastTtl(int iSock, int iTtl);
/* SO_LINGER (on/off, seconds); the setsockopt result. */
NET_API int Socket_SetLinger(int iSock, int iOnOff, int iSeconds);
/* Address text of an IPv4 or IPv6 socket address in a static buffer shared by all callers
 * (not thread-safe); null otherwise. */
NET_API char *Socket_AddrtoStr(const struct sockaddr *pstAddr);
/* 1 when pcAddr is an IPv4 address text (stored in pAddr, 4 bytes, when not null), else 0. */
NET_API int Is_IpV4Addr(const char *pcAddr, void *pAddr);
/* 1 when pcAddr is an IPv6 address text (stored in pAddr, 16 bytes, required), else 0. */
NET_API int Is_IpV6Addr(const char *pcAddr, void *pAddr);
/* Always 0: this family works on IPv4. */
NET_API int Is_SupportIpv6(void);
/* The fixed RTSP port, 554. */
NET_API int Get_IpPort(void);
/* AF_INET (Is_SupportIpv6 is 0). */
NET_API int Get_SocketFamily(void);
/* socket(); the result. */
NET_API int Socket_Create(int iFamily, int iType, int iProtocol);
/* bind with 28 bytes; 1 for a null address or a family other than IPv4/IPv6. */
NET_API int Socket_Bind(int iSock, const struct sockaddr *pstAddr);
/* listen(); the result. */
NET_API int Socket_Listen(int iSock, int iBacklog);
/* sendto (flags 0) to an IPv4 (16 bytes) or IPv6 (28 bytes) address; the result. */
NET_API int Socket_SendTo(int iSock, const void *pBuf, int iLen, const struct sockaddr *pstAddr);
/* recvfrom into pBuf, the sender into pstAddr (28 bytes); the result, -1 on bad arguments. */
NET_API int Socket_RecvFrom(int iSock, void *pBuf, int iLen, struct sockaddr *pstAddr);
/* close(): 0, or 1. */
NET_API int Socket_Close(int iSock);

/* ======================================================================================
 * Legacy socket API family (_api)
 *   (src/socket/api.cpp)
 * ====================================================================================== */
/* These print their diagnostics to standard output, not to the log. Where a failure result
 * is "printed", it is printf's count of characters: positive, like a success. */
/* socket(); prints on failure. */
NET_API int socket_api(int iFamily, int iType, int iProtocol);
/* connect(); prints on failure. */
NET_API int connect_api(int iSock, const struct sockaddr *pstAddr, unsigned int uiLen);
/* accept(); prints on failure. */
NET_API int accept_api(int iSock, struct sockaddr *pstAddr, unsigned int *puiLen);
/* bind(); prints on failure. */
NET_API int bind_api(int iSock, const struct sockaddr *pstAddr, unsigned int uiLen);
/* listen(); prints on failure. */
NET_API int listen_api(int iSock, int iBacklog);
/* setsockopt(); prints on failure. */
NET_API int setsockopt_api(int iSock, int iLevel, int iOpt, const void *pVal, unsigned int uiLen);
/* getsockopt(): 0, or the printed count on failure. */
NET_API int getsockopt_api(int iSock, int iLevel, int iOpt, void *pVal, unsigned int *puiLen);
/* getsockname(): 0, or the printed count on failure. */
NET_API int getsockname_api(int iSock, struct sockaddr *pstAddr, unsigned int *puiLen);
/* close(): 0, or the printed count on failure. */
NET_API int close_api(int iSock);
/* inet_pton(): 1, or the printed count on failure (null texts fail with EFAULT). */
NET_API int inet_pton_api(int iFamily, const char *pcSrc, void *pDst);
/* Closes with SO_LINGER (on, 0 s): unsent data is dropped and the peer reset; close()'s result. */
NET_API int close_nowait_api(int iSock);
/* As Socket_Readn, printing instead of logging. */
NET_API int readn_api(int iSock, void *pBuf, int iLen);
/* As Socket_Write, printing instead of logging. */
NET_API int write_api(int iSock, void *pBuf, int iLen);
/* As Socket_WritetoFtp, printing instead of logging. */
NET_API int writen_api(int iSock, void *pBuf, int iLen);
/* Connect waiting at most *pstTimeout (null: no limit): 0, or -1. *pstTimeout is kept. */
NET_API int connectwithtimeout_api(int iSock, const struct sockaddr *pstAddr, int iAddrLen,
                                   struct timeval *pstTimeout);
/* Listening IPv4 TCP socket on every address and iPort (backlog 24), or -1. */
NET_API int tcp_srv_com(int iPort);
/* Connects to pcIpAddr:*pusPort (5 s each, 5 s apart, iRetry attempts; 0 without limit):
 * 0 with *piSock set, or -1. */
NET_API int tcp_cli_com(const char *pcIpAddr, unsigned short *pusPort, int *piSock, int iRetry);
/* As tcp_cli_com with the port as decimal text, printing each attempt and "connect ok". */
NET_API int tcp_cli_com_enhance(const char *pcIpAddr, const char *pcPort, int *piSock, int iRetry);
/* Last non-overlapping occurrence of pcStr (not empty) in pcSrc, or null. */
NET_API char *kv_find_last_string(char *pcSrc, const char *pcStr);
/* Copies the piece between pcBeg and pcEnd into pOut (iSize + 1 bytes: the terminator may
 * land at iSize); with an empty pcEnd, from one character into the last pcBeg to the end,
 * unbounded. 0; -1 null argument; -2 marker missing or piece too long. */
NET_API int kv_div_string(char *pcSrc, const char *pcBeg, const char *pcEnd, void *pOut, int iSize);

/* ======================================================================================
 * Network utility socket family
 *   (src/socket/util*.cpp)
 * ====================================================================================== */
/* This family logs nothing and treats IPv6 as available (is_support_ipv6 answers 1). */
/* The peer of a connected socket; an IPv4-mapped IPv6 peer is reported as IPv4. */
typedef struct {
    uint32_t uiIpv4Addr;           /* network order; 0 when the peer is IPv6 */
    unsigned char aucIpv6Addr[16]; /* all zero when the peer is IPv4 */
    uint32_t uiReserved;           /* left zero */
} NetPeerAddr;
NET_LAYOUT_CHECK(sizeof(NetPeerAddr) == 24, peer_addr_size);

/* Reads up to iLen bytes, stopping when the peer closes or nothing comes for 10 s: the count
 * read, or -1 (bad arguments, errors). */
NET_API int readn(int iSock, void *pBuf, int iLen);
/* Sends the whole buffer, waiting at most 10 s for room each time: iLen, or -1. */
NET_API int writen(int iSock, const void *pBuf, int iLen);
/* The same as writen, for the RTSP service. */
NET_API int rtspserver_writen(int iSock, const void *pBuf, int iLen);
/* Sends uiLen bytes in pieces of at most uiChunk: the count sent (0 on bad arguments). */
NET_API int send_data_insmall_packet(int iSock, const void *pBuf, unsigned int uiLen,
                                     unsigned int uiChunk);
/* TCP connection to host:port, each resolved address within iTimeoutMs (-1: blocking, first
 * address only): the socket (left non-blocking), or -1. */
NET_API int ip_connect_withtimeout(const char *pcHost, unsigned short usPort, int iTimeoutMs);
/* TCP socket bound to pcLocalAddr:usLocalPort (required), then connected to host:port (three
 * 5 s attempts) or, with cListen non-zero, listening: the socket, or -1. */
NET_API int tcp_bind_connect(const char *pcHost, unsigned short usPort, const char *pcLocalAddr,
                             unsigned short usLocalPort, char cListen);
/* UDP socket bound to pcLocalAddr:usLocalPort and connected to host:port: socket, or -1. */
NET_API int udp_bind_connect(const char *pcHost, unsigned short usPort, const char *pcLocalAddr,
                             unsigned short usLocalPort);
/* Fills the zeroed record with the socket's peer address: 0, or -1. */
NET_API int get_peer_addr(int iSock, NetPeerAddr *pstPeer);
/* Joins an IPv4 group on the first LAN interface's address (iLen > 0): setsockopt's result. */
NET_API int mcast_join(int iSock, const struct sockaddr_in *pstGroup, int iLen);
/* Joins an IPv4 or IPv6 group on the named interface: setsockopt's result, or -1. */
NET_API int mcast_join_ex(int iSock, const struct sockaddr *pstGroup, const char *pcIfName);
/* Leaves an IPv4 group (any interface); iLen is ignored: setsockopt's result, or -1. */
NET_API int mcast_leave(int iSock, const struct sockaddr_in *pstGroup, int iLen);
/* Leaves an IPv4 or IPv6 group on the first LAN interface: setsockopt's result, or -1. */
NET_API int mcast_leave_ex(int iSock, const struct sockaddr *pstGroup);
/* IPv4 multicast loop-back (one byte): setsockopt's result, or -1. */
NET_API int mcast_setloop(int iSock, int iLoop);
/* Multicast loop-back of the family, one byte in both cases: setsockopt's result, or -1. */
NET_API int mcast_setloop_ex(int iSock, int iLoop, int iFamily);
/* Dotted text of an IPv4 address (network order) copied into pcBuf (16 bytes): pcBuf, or
 * null. */
NET_API char *inet_ntoa_b(uint32_t uiAddr, char *pcBuf);
/* Address text of a socket address in a static buffer shared by all callers (32 bytes for
 * IPv6, so long IPv6 texts give null); null otherwise. */
NET_API char *socketaddr_tostr(const struct sockaddr *pstAddr);
/* Fills a 28-byte socket address from text (null: wildcard) and port: 0, or -1. */
NET_API int make_addr_bystring(int iFamily, const char *pcAddr, unsigned short usPort,
                               struct sockaddr *pstAddr);
/* Connect within iTimeoutMs (-1: blocking): 0, or -1. */
NET_API int socket_connect_withtimeout(int iSock, const struct sockaddr *pstAddr, int iTimeoutMs);
/* Connect waiting at most *pstTimeout (null: no limit): 0, or -1. *pstTimeout is kept. */
NET_API int connect_with_timeout(int iSock, const struct sockaddr *pstAddr, int iAddrLen,
                                 struct timeval *pstTimeout);
/* sendto (flags 0) to an IPv4 (16 bytes) or IPv6 (28 bytes) address; the result. */
NET_API int socket_sendto(int iSock, const void *pBuf, int iLen, const struct sockaddr *pstAddr);
/* recvfrom into pBuf, the sender into pstAddr (28 bytes); the result, -1 on bad arguments. */
NET_API int socket_recvfrom(int iSock, void *pBuf, int iLen, struct sockaddr *pstAddr);
/* The fixed RTSP port, 554. */
NET_API int get_ipport(void);
/* AF_INET6 (is_support_ipv6 is 1). */
NET_API int get_socket_family(void);
/* socket(); the result. */
NET_API int socket_create(int iFamily, int iType, int iProtocol);
/* bind with 16 (IPv4) or 28 (IPv6) bytes; -1 for a null address or another family. */
NET_API int socket_bind(int iSock, const struct sockaddr *pstAddr);
/* listen(): 0, or -1. */
NET_API int socket_listen(int iSock, int iBacklog);
/* Accept within iTimeoutMs (-1: no limit); pstAddr (28 bytes) may be null; socket or -1. */
NET_API int socket_accept_with_timeout(int iSock, struct sockaddr *pstAddr, int iTimeoutMs);
/* SO_REUSEADDR on; the setsockopt result. */
NET_API int socket_reuse(int iSock);
/* IPv4 multicast TTL; the setsockopt result. */
NET_API int set_socket_mcast_ttl(int iSock, int iTtl);
/* SO_LINGER (on/off, seconds); the setsockopt result. */
NET_API int set_socket_linger(int iSock, int iOnOff, int iSeconds);
/* SO_KEEPALIVE, TCP_KEEPIDLE, TCP_KEEPINTVL, TCP_KEEPCNT; the last setsockopt's result. */
NET_API int set_socket_keeplive(int iSock, int iOnOff, int iIdle, int iInterval, int iCount);

/* ======================================================================================
 * UCI access layer
 *   (src/config/uci_access.cpp)
 * ====================================================================================== */
/* libuci's own package and section objects, used as handles. */
struct uci_package;
struct uci_section;

/* Section that holds an interface's settings: "lan" for "eth0", else the name itself. */
NET_API const char *NET_GetUciNameByIfName(const char *pcIfName);
/* Loads a package with a context of its own (retried once after NET_RestoreCfgFile). */
NET_API struct uci_package *NET_CreatePackage(const char *pcPkgName);
/* Discards unsaved changes and releases the package and its context. */
NET_API void NET_FreePackage(struct uci_package *pstPackage);
/* Saves the package, then NET_BackupCfgFile; releases it whether the commit worked or not. */
NET_API int NET_UciCommit(struct uci_package *pstPackage);
/* The section of that name (any type), or null. */
NET_API struct uci_section *NET_GetSection(struct uci_package *pstPackage, const char *pcSecName);
/* The section of that name, created with pcSecType when absent (an existing one is kept). */
NET_API struct uci_section *NET_CreateAndGetSection(struct uci_package *pstPackage,
                                                    const char *pcSecType, const char *pcSecName);
/* Removes a section with all its options. */
NET_API int NET_DelSection(struct uci_section *pstSection);
/* Creates or replaces a string option (a list becomes a single string). */
NET_API int NET_SetOption(struct uci_section *pstSection, const char *pcOptName,
                          const char *pcOptVal);
/* Copies at most uiLen - 1 bytes of a string option, adding no terminator (zero the buffer
 * first); -1 without a message when the option is absent or a list. */
NET_API int NET_GetOption(struct uci_section *pstSection, const char *pcOptName, char *pcOptVal,
                          unsigned int uiLen);
/* Removes an option; -1 without a message when there is none. */
NET_API int NET_DelOption(struct uci_section *pstSection, const char *pcOptName);
/* Appends a value to a list option (duplicates kept). */
NET_API int NET_SetUciList(struct uci_section *pstSection, const char *pcListName,
                           const char *pcListVal);
/* Removes every copy of a value from a list option; -1 when the list does not hold it. */
NET_API int NET_DelUciList(struct uci_section *pstSection, const char *pcListName,
                           const char *pcListVal);

/* ======================================================================================
 * Address and DHCP mode configuration
 *   (src/config/addr.cpp, dhcp.cpp)
 * ====================================================================================== */
/* Stores "ipaddr" and "netmask" of the interface's section (values not checked). */
NET_API int NET_SetIpv4AddrCfg(const char *pcIfName, const char *pcIpv4Addr,
                               const char *pcIpv4Mask);
/* Stores "ip6addr" as "address/prefix length". */
NET_API int NET_SetIpv6AddrCfg(const char *pcIfName, const char *pcIPv6Addr, int iPrefixLen);
/* The stored IPv6 address without its prefix length (pcIPv6Addr: at least 64 bytes). */
NET_API int NET_GetIpv6AddrCfg(const char *pcIfName, char *pcIPv6Addr);
/* 1 when the stored "ipv4dhcp" is exactly "1", else 0 (also on every error). */
NET_API int NET_IsDhcpMode(const char *pcIfName);
/* 1 when the stored "ipv6dhcp" is exactly "1", else 0 (also on every error). */
NET_API int NET_IsDhcpv6Mode(const char *pcIfName);
/* Sets "proto" to "dhcp" (or "dhcpv6") unless already in DHCP mode. */
NET_API int NET_EnableDhcpCfg(const char *pcIfName);
/* Sets "proto" to "static" (or "dhcpv6") unless already static. */
NET_API int NET_DisableDhcpCfg(const char *pcIfName);

/* ======================================================================================
 * Service port configuration
 *   (src/config/ports.cpp)
 * ====================================================================================== */
/* Fills the service ports and the port mapping from the "port" and "portmapping" sections. */
NET_API int NET_GetPortCfg(NetPortCfg *pstPortCfg);
/* Stores the HTTP and RTSP ports and the port mapping (standard external ports in mode 0). */
NET_API int NET_SetPortCfg(NetPortCfg stPortCfg);
/* Placeholder: does nothing, returns 0. */
NET_API int NET_GetPortMappingCfg(unsigned short usPort, void *pvMapping);

/* ======================================================================================
 * DDNS and PPPoE configuration
 *   (src/config/ddns_pppoe.cpp)
 * ====================================================================================== */
/* Fills the record from the "ddns" section. */
NET_API int NET_GetDdnsCfg(NetDdnsCfg *pstDdnsCfg);
/* Stores the record in the "ddns" section. */
NET_API int NET_SetDdnsCfg(const NetDdnsCfg *pstDdnsCfg);
/* Fills the record from the "pppoe" section. */
NET_API int NET_GetPppoeCfg(NetPppoeCfg *pstPppoeCfg);
/* Stores the record in the "pppoe" section. */
NET_API int NET_SetPppoeCfg(NetPppoeCfg stPppoeCfg);

/* ======================================================================================
 * IPv4 and IPv6 collision detection
 *   (src/detect/arp_probe.cpp, ndp_probe.cpp)
 * ====================================================================================== */
/* One ARP probe (sender 0.0.0.0) out of pcIfName; *pbIsCollision = 1 when another host
 * answers for pcIpAddr within iTimeoutMsec (>= 0), at most 50 frames read; else untouched. */
NET_API int NET_DetectIpv4Collision(const char *pcIfName, const char *pcIpAddr, int iTimeoutMsec,
                                    int *pbIsCollision);
/* One neighbour solicitation for pcIpv6Addr; *pbIsCollision = 1 on an advertisement for it
 * (waits iTimeoutMsec / 1000 s plus iTimeoutMsec ms); else untouched. */
NET_API int NET_DetectIpv6Collision(const char *pcIfName, const char *pcIpv6Addr, int iTimeoutMsec,
                                    int *pbIsCollision);

/* ======================================================================================
 * MAC collision monitor and gratuitous ARP
 *   (src/detect/mac_monitor.cpp, garp.cpp)
 * ====================================================================================== */
/* Thread entry, argument the interface name: watches ARP for this MAC as sender, for ever
 * (cancel it); at most three interfaces, one monitor each. */
NET_API void *net_DetectMacCollisionThread(void *pvArgv);
/* Does nothing and returns 0: start net_DetectMacCollisionThread yourself. */
NET_API int NET_CreateMacCollThread(void *pvArgv);
/* The monitor status of pcIfName as it was started (1 collision, 0 none); -1 unknown name. */
NET_API int NET_GetMacCollStatus(const char *pcIfName, int *piStatus);
/* Sends one gratuitous ARP request for the interface's own IPv4 address; pcIfName not null. */
NET_API int NET_SendGratuitousPack(const char *pcIfName);

/* ======================================================================================
 * ICMP ping
 *   (src/detect/ping.cpp)
 * ====================================================================================== */
/* One echo to the numeric IPv4 pcHost through pcIfName; round trip in microseconds into
 * *pdTime. Waits at most 2 s; replies are matched by the whole process id. */
NET_API int NET_Ping(const char *pcIfName, const char *pcHost, double *pdTime);

/* ======================================================================================
 * Network configuration model
 *   (src/config/ether_get.cpp; NET_SetEtherCfg: src/device/ether_set.cpp)
 * ====================================================================================== */
/* Stores the whole record in the interface's section (the section must exist); on a
 * two-interface device -20/-21 refuse an IPv4/IPv6 address the other interface holds and
 * -22/-23 one inside its subnet, before anything is opened. 0, -1 or those four. */
NET_API int NET_SetEtherCfg(const char *pcIfName, const NetEtherCfg *pstEtherCfg);
/* Fills the record from the interface's section and, in the automatic modes, from the live
 * interface; the fields of absent options are left as they were (an absent "mtu" is 1500). */
NET_API int NET_GetEtherCfg(const char *pcIfName, NetEtherCfg *pstEtherCfg);

/* ======================================================================================
 * Subnet and same-network checks
 *   (src/device/subnet.cpp, subnet_ipv6.cpp; NET_IsIpv6RouteAdviseAddr: src/link/ipv6_addr.cpp)
 * ====================================================================================== */
/* 1 when the address is not in the other interface's stored subnet (or there is no other
 * interface), 0 when it is or on a bad argument. */
NET_API int NET_IsIpv4SubnetValid(const char *pcIfName, const char *pcIpv4Addr,
                                  const char *pcIpv4Mask);
/* 1 when the address differs from one of the other interface's live IPv6 prefixes (prefix
 * lengths 0 to 127), 0 when it overlaps all of them, on a bad argument or a failed list. */
NET_API int NET_IsIpv6SubnetValid(const char *pcIfName, const char *pcIpv6Addr, int iPrefix);
/* 1 when the address lies in the interface's live IPv4 subnet, 0 otherwise or on failure. */
NET_API int NET_IsIpv4SameSubnet(const char *pcIfName, const char *pcIpv4Addr);
/* 1 when the address shares the prefix of one of the interface's IPv6 addresses, else 0. */
NET_API int NET_IsIpv6SameSubnet(const char *pcIfName, const char *pcIpv6Addr);
/* *pbIsSame = NET_IsIpv4SameSubnet on the first interface; 0, or -1 for a null argument. */
NET_API int NET_IsSameNet(const char *pcIpv4Addr, int *pbIsSame);
/* Name of the interface holding the IPv4 address (iLen - 1 characters at most); -1 when none
 * does. IPv6 addresses are looked up only in what a failed list request leaves. */
NET_API int NET_GetIfNameByIp(const char *pcIpAddr, char *pcIfName, int iLen);
/* 1 when the address carries the interface's MAC in its EUI-64 identifier (bytes 9 to 15,
 * compared as short strings), else 0. */
NET_API int NET_IsIpv6RouteAdviseAddr(const char *pcIfName, const char *pcIpv6Addr);

/* ======================================================================================
 * DNS, route, MTU and gateway configuration
 *   (src/config/dns_mtu_gateway.cpp, routes.cpp)
 * ====================================================================================== */
/* Appends the given servers to the interface's "dns" list (either may be null, not both). */
NET_API int NET_SetDnsCfg(const char *pcIfName, const char *pcMaster, const char *pcSlaver);
/* Removes pcMaster (and pcSlaver when given) from the "dns" list; -1 when one is not stored. */
NET_API int NET_DelDnsCfg(const char *pcIfName, const char *pcMaster, const char *pcSlaver);
/* Stores a static route as a "route" section named "<ifname>_<ADDR>" (or "gateway" for the
 * mask 0.0.0.0): one per interface and destination. */
NET_API int NET_SetRouteCfg(const char *pcIfName, const char *pcAddr, const char *pcMask);
/* Removes the route section of that interface and destination. */
NET_API int NET_DelRouteCfg(const char *pcIfName, const char *pcAddr, const char *pcMask);
/* Stores the MTU (100 to 1500); 1500, the default, removes the option instead. */
NET_API int NET_SetMtuCfg(const char *pcIfName, int iMtuVal);
/* Stores "gateway" (not validated). */
NET_API int NET_SetGatewayCfg(const char *pcIfName, const char *pcGateway);
/* Removes "gateway"; -1 when none is stored. */
NET_API int NET_DelGatewayCfg(const char *pcIfName);

/* ======================================================================================
 * Static routes
 *   (src/device/routes.cpp)
 * ====================================================================================== */
/* Adds a direct route through the interface (a host route exactly when the mask text is
 * "255.255.255.255"), then stores it; nothing is stored when the kernel refuses. */
NET_API int NET_IPv4SetRoute(const char *pcIfName, const char *pcAddr, const char *pcMask);
/* Removes the route from the kernel, then from the store; -1 when the kernel has none. */
NET_API int NET_IPv4DelRoute(const char *pcIfName, const char *pcAddr, const char *pcMask);
/* Kernel only: adds a direct route (host route when iHost is non-zero) through pcIfName;
 * prints its failures to standard output. */
NET_API int set_route1(const char *pcAddr, const char *pcMask, int iHost, const char *pcIfName);
/* Kernel only: the same on the active interface, silently. */
NET_API int set_route(const char *pcAddr, const char *pcMask, int iHost);

/* ======================================================================================
 * Active interface and client
 *   (src/device/active.cpp)
 * ====================================================================================== */
/* The library's active interface (the one the current client reaches the device through);
 * "lan1" on a two-interface device and "eth0" otherwise until one is set. */
NET_API char *get_active_interface(void);
/* Sets the active interface (at most 15 characters); -1 for null. */
NET_API int set_active_interface(const char *pcIfName);
/* Copies the first 3 characters of the active client address, unterminated; -1 for null. */
NET_API int get_active_clientip(char *pcClientIp);
/* Sets the active client address (at most 45 characters); -1 for null. */
NET_API int set_active_clientip(const char *pcClientIp);

/* ======================================================================================
 * Configuration conversion at start
 *   (src/migrate/convert*.cpp)
 * ====================================================================================== */
/* Once at start-up, before any other configuration call: converts "network" from the old or
 * the one-interface layout to what the hardware needs and then calls SYS_Reboot; stamps an
 * unmarked one-interface package "single". 0 (also when nothing was due), or -1. */
NET_API int NET_ConvertConfig(void);

/* ======================================================================================
 * Old configuration layout (packages and options: docs/old-layout.md)
 *   (src/migrate/old_*.cpp)
 * ====================================================================================== */
/* Addresses from section "lan" of "network", then NET_GetOldTcpipCfg. 0 or -1. */
NET_API int NET_GetOldEthCfg(NetEtherCfg *pstEtherCfg);
/* Modes, card type, MTU (1500 when absent) and DNS servers from package "tcpip". */
NET_API int NET_GetOldTcpipCfg(NetEtherCfg *pstEtherCfg);
/* Writes modes, IPv6 gateway, card type, MTU and both DNS servers to package "tcpip". */
NET_API int NET_SetOldTcpipCfg(const NetEtherCfg *pstEtherCfg);
/* Sets the HTTP listen entries "0.0.0.0:port" and "[::]:port" of "main" in "uhttpd". */
NET_API int NET_SetOldUhttpdCfg(unsigned short usHttpPort);
/* Ports and the HTTP/RTSP mapping from package "port" (sections "port", "portmapping"). */
NET_API int NET_GetOldPortCfg(NetPortCfg *pstPortCfg);
/* Writes them back (not the HTTPS port), then NET_SetOldUhttpdCfg with the HTTP port. */
NET_API int NET_SetOldPortCfg(const NetPortCfg *pstPortCfg);
/* DDNS account from package "ddns"; the provider names "DynDNS" and "NO-IP" are 0 and 1. */
NET_API int NET_GetOldDdnsCfg(NetDdnsCfg *pstDdnsCfg);
/* Writes the DDNS account to package "ddns" (the DDNS domain as "domain"). */
NET_API int NET_SetOldDdnsCfg(const NetDdnsCfg *pstDdnsCfg);
/* PPPoE account from package "pppoe". */
NET_API int NET_GetOldPppoeCfg(NetPppoeCfg *pstPppoeCfg);
/* Writes the PPPoE account to package "pppoe" (the password twice, as "passwordconfirm"). */
NET_API int NET_SetOldPppoeCfg(const NetPppoeCfg *pstPppoeCfg);

/* ======================================================================================
 * Roll-back to the old configuration
 *   (src/migrate/rollback.cpp)
 * ====================================================================================== */
/* *pbCfgBack = 1 only for iVersion 0 on a package stamped "single". 0; -1 for an iVersion
 * other than 0 to 2, an unloadable package, or an unstamped marker asked by 0 or 1; -2 for
 * a null pbCfgBack. */
NET_API int NET_IsNetConfigBack(int iVersion, int *pbCfgBack);
/* Writes the current settings to the old packages and strips "network" of the new sections.
 * No restart, no reboot. 0 or -1. */
NET_API int NET_NetConfigBackToOld(void);
/* Its first step: strips and commits "network", then NET_SetOldTcpipCfg. 0, -1, or -2 for a
 * null record. */
NET_API int NET_NetBackToOldEthCfg(NetEtherCfg *pstEtherCfg);

/* ======================================================================================
 * Default network card and device summary
 *   (src/config/default_card.cpp; LLDP: src/device/lldp.cpp)
 * ====================================================================================== */
/* Reserved for the default card's name (16 bytes, zero at load). */
NET_API extern char g_szDefNetCard[16];
/* The LLDP agent's thread; 0xFFFFFFFF when there is none. */
NET_API extern unsigned long g_ulNetLldpThrd;
/* Stores the default card on a two-interface device (commits on any device). 0, -1, or -2. */
NET_API int NET_SetDefNetCard(const char *pcNetDefCard);
/* Size first: copies the stored card with at most uiLen characters, unterminated when it has
 * uiLen or more; the buffer is untouched on a one-interface device. 0, -1, or -2. */
NET_API int NET_GetDefNetCard(unsigned int uiLen, char *pcNetDefCard);
/* Port count and the stored settings of "lan1" and "lan2", or of "eth0". 0 or -1. */
NET_API int drv_net_GetIpcConfig(NetIpcConfig *pstIpcConfig);
/* Registers the agent's thread: the next link-down callback cancels it. 0. */
NET_API int Net_LldpSetThread(unsigned long ulThread);
/* Link-up callback of the LLDP agent: does nothing, 0. */
NET_API int Net_LldpLinkUpCB(void);
/* Link-down callback: cancels a registered agent thread, forgets it, and runs
 * "/usr/bin/lldpd stop". 0, or -1 when the command cannot be started. */
NET_API int Net_LldpLinkDownCB(void);

/* ======================================================================================
 * Configuration backup hooks
 *   (src/config/backup.cpp)
 * ====================================================================================== */
/* Hook after every successful commit; does nothing here and returns 0. */
NET_API int NET_BackupCfgFile(void);
/* Hook before the one retry of a failed load; does nothing here and returns 0. */
NET_API int NET_RestoreCfgFile(void);

/* ======================================================================================
 * Extensions
 *   Calls beyond the first release, in the version node LIBNETWORK_1.1 of
 *   src/libnetwork.map. They keep the house rules: 0 or -1 unless a result record says
 *   more, the reason of a failure logged, no thread of the library's own, and a descriptor
 *   handed to the caller only where the call says so. Their records have layout checks of
 *   their own. Each group below names its source files.
 * ====================================================================================== */

/* ---- Conflict probes (RFC 5227, RFC 4862 with RFC 7527) -------------------------------
 *   (src/detect/rfc_probe4.cpp, rfc_probe6.cpp, rfc_link.cpp, rfc_frames.cpp)
 * Probes for an address the caller is about to use, listening from the first moment to the
 * end: any frame of another host that claims the address, or probes for it at the same
 * time, ends the probe at once. The interface needs no address of its own. */

/* What a probe found. */
typedef enum {
    NET_PROBE_FREE = 0,         /* nobody objected for the whole probe */
    NET_PROBE_CONFLICT = 1,     /* another host holds the address */
    NET_PROBE_SIMULTANEOUS = 2, /* another host probes for it at the same time */
    NET_PROBE_NOT_SENT = 3,     /* a probe could not go out (iErrno); never read as free */
    NET_PROBE_NO_INTERFACE = 4  /* no interface of that name (iErrno ENODEV) */
} NetProbeOutcome;

/* Timings in milliseconds; a negative field takes the RFC value, a null pointer all of
 * them. RFC 5227 for IPv4: wait 0..1000, 3 probes 1000..2000 apart, then 2000; announce 2
 * times 2000 apart. RFC 4862 for IPv6: wait 0..1000, 1 solicitation (1000 apart), then
 * 1000. Each time at most 60000, at most 16 probes or announcements. */
typedef struct {
    int32_t iProbeWaitMs;        /* first probe after a random 0..this */
    int32_t iProbeNum;           /* probes (solicitations) sent, at least 1 */
    int32_t iProbeMinMs;         /* next probe after a random min..max */
    int32_t iProbeMaxMs;         /* at least iProbeMinMs */
    int32_t iAnnounceWaitMs;     /* listening after the last probe */
    int32_t iAnnounceNum;        /* NET_AnnounceIpv4: announcements, at least 1 */
    int32_t iAnnounceIntervalMs; /* NET_AnnounceIpv4: between them */
} NetProbeOpts;
NET_LAYOUT_CHECK(sizeof(NetProbeOpts) == 28, probe_opts_size);

/* The RFC timings, and the fast ones (a free IPv4 address takes 200..350 ms). */
/* clang-format off */
#define NET_PROBE_OPTS_RFC {-1, -1, -1, -1, -1, -1, -1}
#define NET_PROBE_OPTS_FAST {50, -1, 50, 100, 100, -1, 100}
/* clang-format on */

typedef struct {
    int32_t iOutcome;       /* NetProbeOutcome */
    int32_t iErrno;         /* why, for NET_PROBE_NOT_SENT and NET_PROBE_NO_INTERFACE */
    uint8_t aucMac[6];      /* the other host's MAC; zero when free or not made */
    uint8_t aucReserved[2]; /* zero */
    int32_t iProbesSent;    /* probes that went out */
    int32_t iConflictUs;    /* from the call to the first objecting frame; -1 if none */
    int32_t iElapsedUs;     /* the whole call */
} NetProbeResult;
NET_LAYOUT_CHECK(sizeof(NetProbeResult) == 28, probe_result_size);
NET_LAYOUT_CHECK(offsetof(NetProbeResult, aucMac) == 8, probe_result_mac);
NET_LAYOUT_CHECK(offsetof(NetProbeResult, iConflictUs) == 20, probe_result_conflict);

/* RFC 5227 probes for pcAddr out of pcIfName: 0 with *pstRes free, conflict or simultaneous;
 * -1 with *pstRes not sent (EINVAL: bad address or options) or no interface (logged). */
NET_API int NET_ProbeIpv4(const char *pcIfName, const char *pcAddr, const NetProbeOpts *pstOpts,
                          NetProbeResult *pstRes);
/* RFC 4862 duplicate address detection for pcAddr, solicitations from :: with an RFC 7527
 * nonce; answers as NET_ProbeIpv4 (a conflict is an advertisement for pcAddr). */
NET_API int NET_ProbeIpv6(const char *pcIfName, const char *pcAddr, const NetProbeOpts *pstOpts,
                          NetProbeResult *pstRes);
/* RFC 5227 announcements of pcAddr (sender and target pcAddr) out of pcIfName: iAnnounceNum
 * of them iAnnounceIntervalMs apart; 0 when all went out, else -1 (logged). */
NET_API int NET_AnnounceIpv4(const char *pcIfName, const char *pcAddr, const NetProbeOpts *pstOpts);

/* ======================================================================================
 * Kernel events
 *   (src/events/events.cpp; the message reader: src/events/watch.cpp, netlink_walk.cpp)
 * ====================================================================================== */

/* What NET_EventOpen follows (its mask). */
#define NET_EVENT_LINK 0x01u       /* interfaces: up/down, carrier, MTU, name, new, removed */
#define NET_EVENT_IPV4_ADDR 0x02u  /* IPv4 addresses */
#define NET_EVENT_IPV6_ADDR 0x04u  /* IPv6 addresses, duplicate-address detection included */
#define NET_EVENT_IPV4_ROUTE 0x08u /* IPv4 unicast routes of the main table */
#define NET_EVENT_IPV6_ROUTE 0x10u /* IPv6 unicast routes of the main table */
#define NET_EVENT_ALL 0x1Fu

/* What happened (NetEvent.iKind). */
typedef enum {
    NET_EVENT_OVERRUN = 1,     /* the kernel dropped events: read the state afresh */
    NET_EVENT_LINK_UP = 2,     /* set up (administratively) */
    NET_EVENT_LINK_DOWN = 3,   /* set down */
    NET_EVENT_CARRIER_ON = 4,  /* the other end of the cable is there */
    NET_EVENT_CARRIER_OFF = 5, /* it is gone: unplugged, or the other side went down */
    NET_EVENT_MTU = 6,         /* iMtu is the new MTU */
    NET_EVENT_RENAME = 7,      /* szIfName is the new name, szAddr the old one */
    NET_EVENT_LINK_NEW = 8,    /* an interface appeared */
    NET_EVENT_LINK_DEL = 9,    /* an interface was removed */
    NET_EVENT_ADDR_ADD = 10,   /* an address was added, or its flags changed */
    NET_EVENT_ADDR_DEL = 11,   /* an address was removed */
    NET_EVENT_ROUTE_ADD = 12,  /* szAddr/iPrefixLen via szGateway ("" when on-link) */
    NET_EVENT_ROUTE_DEL = 13
} NetEventKind;

/* NetEvent.uiFlags: an address's state, or an interface's state after the event. */
#define NET_EVENT_F_TENTATIVE 0x01u  /* duplicate-address detection still running */
#define NET_EVENT_F_DADFAILED 0x02u  /* another host holds the address: unusable */
#define NET_EVENT_F_DEPRECATED 0x04u /* preferred lifetime over */
#define NET_EVENT_F_UP 0x10u         /* interface set up */
#define NET_EVENT_F_CARRIER 0x20u    /* interface has carrier */

/* One event; fields a kind does not use are zero. */
typedef struct {
    int32_t iKind;      /* NetEventKind */
    int32_t iIfIndex;   /* 0 for an overrun */
    char szIfName[16];  /* "" when the interface is already gone */
    int32_t iFamily;    /* AF_INET, AF_INET6 (addresses, routes), else 0 */
    int32_t iPrefixLen; /* of the address or the route's destination */
    uint32_t uiFlags;   /* NET_EVENT_F_* */
    int32_t iMtu;       /* link events */
    char szAddr[46];    /* address; route destination; old name on a rename */
    char szGateway[46]; /* route gateway, "" when none */
    char acReserved[4]; /* zero */
    uint64_t ullTimeNs; /* CLOCK_MONOTONIC when the library received it */
} NetEvent;

NET_LAYOUT_CHECK(offsetof(NetEvent, szIfName) == 8, event_ifname);
NET_LAYOUT_CHECK(offsetof(NetEvent, iMtu) == 36, event_mtu);
NET_LAYOUT_CHECK(offsetof(NetEvent, szAddr) == 40, event_addr);
NET_LAYOUT_CHECK(offsetof(NetEvent, szGateway) == 86, event_gateway);
NET_LAYOUT_CHECK(offsetof(NetEvent, ullTimeNs) == 136, event_time);
NET_LAYOUT_CHECK(sizeof(NetEvent) == 144, event_size);

/* A non-blocking, close-on-exec descriptor that receives the kernel's events of the kinds in
 * uiMask about the interfaces named in the NULL-terminated list ifnames (NULL: all; at most 8
 * names), for the caller's poll loop; -1 with the reason logged. */
NET_API int NET_EventOpen(const char *const *ifnames, unsigned int uiMask);
/* 1 when *pstEvent holds the next event, 0 when none is pending, -1 on error. */
NET_API int NET_EventRead(int iFd, NetEvent *pstEvent);
/* Closes the descriptor and frees what the library kept for it. 0, or -1 when it is not one. */
NET_API int NET_EventClose(int iFd);

/* ======================================================================================
 * Checkpoints: changes that undo themselves unless confirmed
 *   (src/checkpoint/)
 * ====================================================================================== */
/* A checkpoint records the "network" package file, /etc/resolv.conf and the live state of
 * the device's ports (up or down, MTU, IPv4 address and mask, IPv6 global addresses, the
 * default and static routes), with the stored DHCP modes, in one file written crash-safely
 * to persistent storage, with a deadline. Unless confirmed before the deadline, the next
 * NET_CheckpointPoll puts the stored state back first, then the live state. A checkpoint
 * outlives a crash of its creator and a reboot: after a reboot the first poll rolls back at
 * once. One checkpoint at a time. No thread and no timer of the library's own: the caller
 * polls (a main loop, a timer, or "netlibctl checkpoint poll" from a start script). */

/* NetCheckpoint.iState */
typedef enum {
    NET_CKPT_NONE = 0,    /* no checkpoint */
    NET_CKPT_PENDING = 1, /* waiting for confirmation; llRemainingMs until roll-back */
    NET_CKPT_EXPIRED = 2  /* deadline passed or the device rebooted: the next poll rolls back */
} NetCheckpointState;

/* NET_CheckpointCreate's result when a checkpoint is pending already (left as it is). */
#define NET_CKPT_BUSY (-2)

typedef struct {
    int32_t iState;        /* NetCheckpointState */
    uint32_t uiTimeoutS;   /* as created */
    int64_t llRemainingMs; /* until the deadline; 0 when expired, -1 when none */
    int64_t llCreatedUnix; /* wall-clock time of creation, for people; 0 when none */
    int32_t iSameBoot;     /* 1 when created since the device last started, else 0 */
    int32_t iReserved;     /* zero */
} NetCheckpoint;

NET_LAYOUT_CHECK(offsetof(NetCheckpoint, llRemainingMs) == 8, ckpt_remaining);
NET_LAYOUT_CHECK(sizeof(NetCheckpoint) == 32, ckpt_size);

/* What a roll-back put back (NetRollbackResult.uiRestored) or could not (uiFailed). */
#define NET_CKPT_R_PACKAGE 0x001u /* the "network" package file */
#define NET_CKPT_R_RESOLV 0x002u  /* /etc/resolv.conf */
#define NET_CKPT_R_LINK 0x004u    /* up or down */
#define NET_CKPT_R_MTU 0x008u     /* MTU */
#define NET_CKPT_R_IPV4 0x010u    /* IPv4 address and mask */
#define NET_CKPT_R_IPV6 0x020u    /* IPv6 global addresses */
#define NET_CKPT_R_ROUTES 0x040u  /* default and static routes */
#define NET_CKPT_R_DHCP 0x080u    /* DHCP ports: the network restart that starts their client */

typedef struct {
    uint32_t uiRestored;   /* NET_CKPT_R_* that were put back (or were already as recorded) */
    uint32_t uiFailed;     /* NET_CKPT_R_* that could not be; 0 when all came back */
    int32_t iPorts;        /* ports whose live state was handled */
    char szFailedPort[16]; /* the first port where something failed, "" when none */
    char szDetail[108];    /* the first failure in words, "" when none */
} NetRollbackResult;

NET_LAYOUT_CHECK(offsetof(NetRollbackResult, szDetail) == 28, rollback_detail);
NET_LAYOUT_CHECK(sizeof(NetRollbackResult) == 136, rollback_size);

/* Records the state and sets the deadline uiTimeoutS seconds ahead (1..86400, on the boot
 * clock, so a changed wall clock moves nothing). 0; NET_CKPT_BUSY when one is pending;
 * -1 on bad input, when it could not be written (nothing is left behind), or when a
 * checkpoint file is there that cannot be read (NET_CheckpointConfirm drops it). */
NET_API int NET_CheckpointCreate(unsigned int uiTimeoutS);
/* Keeps the changes made since: drops the checkpoint, even one that cannot be read. 0, or -1
 * when there is none. */
NET_API int NET_CheckpointConfirm(void);
/* Puts back what was recorded, stored state first, and drops the checkpoint; *pstRes (may
 * be NULL) says what came back. 0 when everything did; -1 when there was no checkpoint, it
 * was unreadable (nothing applied), or something could not be put back (see *pstRes). */
NET_API int NET_CheckpointRollback(NetRollbackResult *pstRes);
/* Rolls back when the deadline has passed or the device rebooted since the checkpoint was
 * made. 0 when nothing was due (none, still pending, or another process is at work on it:
 * a poll never waits for one), 1 when it rolled back and everything came back, -1 on error
 * or when something could not (see *pstRes). */
NET_API int NET_CheckpointPoll(NetRollbackResult *pstRes);
/* Fills *pstCkpt. 0, or -1 on a null pointer or an unreadable checkpoint file. */
NET_API int NET_CheckpointStatus(NetCheckpoint *pstCkpt);

#ifdef __cplusplus
}
#endif

#endif /* LIBNETWORK_H */
