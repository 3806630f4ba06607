#include "platform/container_runtime/logs/journal/mapped_files.h"

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>

#include "platform/common/system_text.h"

namespace KxNContainer {

namespace {

thread_local volatile std::sig_atomic_t isReading = 0;
struct sigaction actionBefore {};
std::uintptr_t pageSize = 0;

/// Runs on the thread that touched the page, which then reads on.
void replacePage(int, siginfo_t* fault, void*) {
    char* const address = static_cast<char*>(fault->si_addr);
    char* const page = address - reinterpret_cast<std::uintptr_t>(address) % pageSize;
    if (isReading == 0 || fault->si_code != BUS_ADRERR ||
        ::mmap(page, pageSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
        ::sigaction(SIGBUS, &actionBefore, nullptr);  // it comes again, and is what it was without us
    }
}

bool install() {
    pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = &replacePage;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    if (::sigaction(SIGBUS, &action, &actionBefore) != 0) {
        throw KxNCommon::systemError("Cannot handle SIGBUS");
    }
    return true;
}

}  // namespace

VanishingPages::VanishingPages() {
    static const bool isInstalled = install();
    isReading = isInstalled ? 1 : 0;
}

VanishingPages::~VanishingPages() {
    isReading = 0;
}

}  // namespace KxNContainer
