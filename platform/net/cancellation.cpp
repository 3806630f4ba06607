#include "platform/net/cancellation.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace KxNNet {

Cancellation::Cancellation() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void Cancellation::cancel() {
    cancelled.store(true, std::memory_order_relaxed);
    ::eventfd_write(event.get(), 1);
}

}  // namespace KxNNet
