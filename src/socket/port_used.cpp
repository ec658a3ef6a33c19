// Whether a TCP port is taken on this host: try to bind it.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include "libnetwork.h"
#include "base/log.h"
#include "base/unique_fd.h"

extern "C" int NET_IsPortUsed(unsigned short usPort)
{
    netlib::UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    if (!fd.valid()) {
        NET_LOGT(NET_LVL_ERR, PL_OPEN_SOCKET_ERROR_PRINT, "iSocketFd: %d\n", fd.get());
        return 0;
    }
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_port = htons(usPort);
    if (inet_pton(AF_INET, "0.0.0.0", &addr.sin_addr) < 0) {
        fd.reset();
        NET_LOG(NET_LVL_ERR, "Convert address failed. \n");
        return 0;
    }
    // No SO_REUSEADDR: a port held only in TIME_WAIT counts as used, as does any refusal.
    return bind(fd.get(), reinterpret_cast<struct sockaddr *>(&addr), sizeof addr) != 0 ? 1 : 0;
}
