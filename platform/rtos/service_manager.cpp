#include "platform/rtos/service_manager.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "KxLog.h"
#include "KxRtos.h"
#include "platform/common/unique_fd.h"

namespace KxNRtosAbstraction {

namespace {

constexpr timeval SEND_PATIENCE{5, 0};

void logFailure(const char* what, std::string_view address, const char* reason) {
    KxCRTE_LOG(3, "Korvex Container Service: The service manager was not told that the service %s (%.*s): %s", what,
               static_cast<int>(address.size()), address.data(), reason);
}

}  // namespace

void notifyServiceManager(std::string_view state, const char* what) {
    const char* const variable = std::getenv("NOTIFY_SOCKET");
    if (variable == nullptr || *variable == '\0') {
        return;
    }
    const std::string_view address = variable;
    sockaddr_un target{};
    target.sun_family = AF_UNIX;
    if ((address.front() != '/' && address.front() != '@') || address.size() >= sizeof(target.sun_path)) {
        logFailure(what, address, "NOTIFY_SOCKET names no Unix socket");
        return;
    }
    address.copy(target.sun_path, address.size());
    if (address.front() == '@') {
        target.sun_path[0] = '\0';  // the abstract namespace; its names end with the address, not with a NUL
    }
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size() + (address.front() == '/' ? 1 : 0));
    const KxNCommon::UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        logFailure(what, address, std::strerror(errno));
        return;
    }
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &SEND_PATIENCE, sizeof(SEND_PATIENCE));
    if (::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&target),
                 length) < 0) {
        logFailure(what, address, std::strerror(errno));
    }
}

void setServiceInitialized() {
    notifyServiceManager("READY=1", "is ready");
    startWatchdog();
}

}  // namespace KxNRtosAbstraction
