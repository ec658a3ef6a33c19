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
    int32_t iIfNum;       /* 1 or 2 */
    char szFirstName[16]; /* at most 15 characters */
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
    uint16_t usSdcPort; /* always 8000 on reading */
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
    int32_t iPortNum; /* 1 or 2 */
    NetEtherCfg astEtherCfg[2]; /* the second only when iPortNum is 2 */
} NetIpcConfig;

/* ======================================================================================
 * Driver interface table: entry positions are the contract (entry N is the N-th word).
 * ====================================================================================== */

typedef void (*NetReservedFn)(void);

typedef struct {
    NetReservedFn pfnReserved1;                                                    /* 1 */
    int (*pfnGetEthName)(char *pcEthName, unsigned int uiLen, int *piEthNum);      /* 2 */
    int (*pfnGetMacAddr)(const char *pcIfName, char *pcMacAddr, unsigned int uiLen);
    int (*pfnSetMtu)(const char *pcIfName, int iMtuVal);                           /* 4 */
    int (*pfnGetMtu)(const char *pcIfName, int *iMtuVal);                          /* 5 */
    int (*pfnSetHostIPEx)(const char *pcIfName, const char *pcIpAddr, const char *pcMask);
    int (*pfnGetHostIPEx)(const char *pcIfName, char *pcIpAddr, unsigned int uiIpLen,
                          char *pcMask, unsigned int uiMaskLen);                   /* 7 */
    int (*pfnSetIpv4Gateway)(const char *pcIfName, const char *pcGateway);         /* 8 */
    int (*pfnGetIpv4Gateway)(const char *pcIfName, char *pcGateway, unsigned int uiLen);
    int (*pfnGetLinkStatus)(const char *pcIfName);                                 /* 10 */
    int (*pfnGetDefNetCard)(char *pcNetDefCard, unsigned int uiLen);               /* 11 */
    int (*pfnSetDefNetCard)(const char *pcNetDefCard);                             /* 12 */
    int (*pfnDelIpv6Addr)(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen);
    int (*pfnAddIpv6Addr)(const char *pcIfName, const char *pstIpv6Addr, int iPrefixLen);
    int (*pfnGetIpv6Addr)(const char *pcIfName, char *pHostIp, unsigned int uiLen,
                          int *piIpv6Mask);                                        /* 15 */
    int (*pfnSetIpv6Gateway)(const char *pcIfName, const char *pcGateway);         /* 16 */
    int (*pfnGetIpv6Gateway)(const char *pcIfName, char *pstIpv6Gateway, unsigned int uiLen);
    NetReservedFn apfnNull18[28];                                                  /* 18-45 */
    int (*pfnGetDnsServer)(const char *pcIfName, char *pcMaster, unsigned int uiMasterLen,
                           char *pcSlave, unsigned int uiSlaveLen);                /* 46 */
    int (*pfnSetDnsServer)(const char *pcIfName, const char *pcMaster, const char *pcSlave);
    int (*pfnCheckIpv4Collision)(const char *pcIfName, const char *pcIpAddr,
                                 int *pbIsCollision);                              /* 48 */
    int (*pfnCheckIpv6Collision)(const char *pcIfName, const char *pcIpv6Addr,
                                 int *pbIsCollision);                              /* 49 */
    int (*pfnGetScopeGlobalAddr6)(const char *pcIfName, char *plinklocal, unsigned int uiLen,
                                  int *piIpv6Mask);                                /* 50 */
    int (*pfnSetSpeedDuplex)(const char *pcIfName, NetSpeedDuplexMode enMode);     /* 51 */
    int (*pfnGetSpeedDuplex)(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode);
    int (*pfnGetMaxSupportSpeed)(const char *pcIfName, NetSpeedDuplexMode *enSpeedDupMode);
    int (*pfnDelIpv4Gateway)(const char *pcIfName, const char *pcGateway);         /* 54 */
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
NET_LAYOUT_CHECK(offsetof(NetDriverInterface, pfnGetEthName) == 1 * sizeof(NetReservedFn),
                 drv_entry2);
NET_LAYOUT_CHECK(offsetof(NetDriverInterface, pfnGetIpv6Gateway) ==
                     16 * sizeof(NetReservedFn), drv_entry17);
NET_LAYOUT_CHECK(offsetof(NetDriverInterface, pfnGetDnsServer) == 45 * sizeof(NetReservedFn),
                 drv_entry46);
NET_LAYOUT_CHECK(offsetof(NetDriverInterface, pfnPing) == 55 * sizeof(NetReservedFn),
                 drv_entry56);
NET_LAYOUT_CHECK(offsetof(NetDriverInterface, pfnIsIpv6RouteAdviseAddr) ==
                     56 * sizeof(NetReservedFn), drv_entry57);

/* ======================================================================================
 * Library frame and interface naming
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
NET_API int NET_GetMacAddrNum(const char *pcIfName, unsigned char *pucMacAddr,
                              unsigned int uiLen);
/* 1 when a TCP port is taken on this host, 0 when free or when it cannot be told. */
NET_API int NET_IsPortUsed(unsigned short usPort);
/* Runs "/etc/init.d/network restart" and waits; 0 when its status is 0. */
NET_API int NET_Restart(void);

/* ======================================================================================
 * Older direct-ioctl calls
 * ====================================================================================== */

/* Raw hardware address of an interface (not "lo") into pucMac (iLen > 5); 0 or -1. */
NET_API int get_mac_num(const char *pcIfName, unsigned char *pucMac, int iLen);

/* ======================================================================================
 * Address conversion
 * ====================================================================================== */
/* IPv4 text to 4 bytes (network order) with the C library: 0, -1 not an address, -2 null. */
NET_API int INET_Ipv4StrToNum(const char *pcStr, void *pvAddr);
/* IPv6 text to 16 bytes (network order) with the C library: 0, -1 not an address, -2 null. */
NET_API int INET_Ipv6StrToNum(const char *pcStr, void *pvAddr);
/* 4 bytes to dotted text in uiLen bytes: 0, -1 buffer too small, -2 null. */
NET_API int INET_Ipv4NumToStr(const void *pvAddr, char *pcBuf, unsigned int uiLen);
/* 16 bytes to IPv6 text in uiLen bytes: 0, -1 buffer too small, -2 null. */
NET_API int INET_Ipv6NumToStr(const void *pvAddr, char *pcBuf, unsigned int uiLen);
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
/* @@inet_convert@@ */

/* ======================================================================================
 * Address, mask, port and name lawfulness checks
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
/* @@inet_check@@ */

/* ======================================================================================
 * Older string validators
 * ====================================================================================== */
/* @@inet_older@@ */

/* ======================================================================================
 * Socket helper family (Socket_)
 * ====================================================================================== */
/* @@socket_helper@@ */

/* ======================================================================================
 * Legacy socket API family (_api)
 * ====================================================================================== */
/* @@socketapi@@ */

/* ======================================================================================
 * Network utility socket family
 * ====================================================================================== */
/* @@socket_util@@ */

/* ======================================================================================
 * UCI access layer
 * ====================================================================================== */
/* @@cfg_uci@@ */

/* ======================================================================================
 * Address and DHCP mode configuration
 * ====================================================================================== */
/* @@cfg_addr@@ */

/* ======================================================================================
 * Service port configuration
 * ====================================================================================== */
/* @@cfg_port@@ */

/* ======================================================================================
 * DDNS and PPPoE configuration
 * ====================================================================================== */
/* @@cfg_ddns_pppoe@@ */

/* ======================================================================================
 * Configuration backup hooks
 * ====================================================================================== */
/* @@mig_backup@@ */

#ifdef __cplusplus
}
#endif

#endif /* LIBNETWORK_H */
