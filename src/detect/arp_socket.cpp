// The interface's own ARP identity and the packet socket of the probe and the announcement.
#include "detect/arp_socket.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <string.h>
#include <sys/socket.h>

#include "detect/frames.h"
#include "libnetwork.h"

namespace netlib
{

int arp_read_self(const CallSite &site, const char *ifname, ArpSelf &self, ConvertLine how)
{
    char text[16] = {0};
    if (NET_GetIpv4Addr(ifname, text, sizeof text) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "Get local ipv4addr error, ifName: %s.\n", ifname);
        return -1;
    }
    memset(self.mac, 0, sizeof self.mac);
    if (NET_GetMacAddrNum(ifname, self.mac, sizeof self.mac) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "Get local macaddr error, ifName: %s.\n", ifname);
        return -1;
    }
    // Only proves the interface has a usable address; the probe itself claims none.
    if (INET_Ipv4StrToNum(text, self.ip) != 0) {
        if (how == ConvertLine::Tagged)
            NET_LOGT_AT(site, NET_LVL_ERR, PL_CONVERT_IPV4_ADDR_ERROR_PRINT,
                        "pcSourceIpAddr: %s.\n", text);
        else
            NET_LOG_AT(site, NET_LVL_ERR, "pcSourceIpAddr: %s.\n", text);
        return -1;
    }
    return 0;
}

UniqueFd arp_open_socket(const CallSite &site)
{
    // The old packet socket kind: unbound, it hears ARP on every interface, and the
    // outgoing device is named per send.
    UniqueFd fd(socket(AF_PACKET, SOCK_PACKET | SOCK_CLOEXEC, htons(ETH_P_ARP)));
    if (!fd.valid()) {
        NET_LOGT_AT(site, NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iSock: %d\n", fd.get());
        return fd;
    }
    int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        NET_LOG_AT(site, NET_LVL_ERR, "Could not setsockopt on raw socket\n");
        fd.reset();
    }
    return fd;
}

ssize_t arp_send(int fd, const uint8_t *frame, const char *ifname)
{
    // Family left zero, the device name in the 14 data bytes, cut to 13 characters.
    struct sockaddr to;
    memset(&to, 0, sizeof to);
    memcpy(to.sa_data, ifname, strnlen(ifname, sizeof to.sa_data - 1));
    return sendto(fd, frame, kArpFrameLen, 0, &to, sizeof to);
}

} // namespace netlib
