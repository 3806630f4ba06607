// A file of its own because the kernel's header and the C library's, which Asio includes, define the same structure,
// and only the kernel's has the byte counts.
#include "platform/net/tcp_progress.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace KxNNet {

TcpProgress readTcpProgress(int descriptor) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) {
        return {};
    }
    int waiting = 0;  // tcp(7)
    ::ioctl(descriptor, SIOCOUTQ, &waiting);
    return {info.tcpi_bytes_acked, info.tcpi_bytes_received, static_cast<std::uint64_t>(waiting)};
}

}  // namespace KxNNet
