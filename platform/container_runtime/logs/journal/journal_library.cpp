#include "platform/container_runtime/logs/journal/journal_library.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/common/unique_fd.h"

namespace KxNContainer {

namespace {

constexpr const char* LIBRARY = "libsystemd.so.0";
constexpr const char* JOURNALD = "/run/systemd/journal/io.systemd.journal";
constexpr timeval SYNCHRONISATION_TIME{0, 700'000};

template <class Function>
void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(library, name));
    if (function == nullptr) {
        throw std::runtime_error(std::string("The journal cannot be read: ") + LIBRARY + " has no " + name);
    }
}

JournalLibrary load() {
    void* const library = ::dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(std::string("The journal cannot be read: ") + ::dlerror());
    }
    JournalLibrary found{};
    find(library, "sd_journal_open", found.open);
    find(library, "sd_journal_close", found.close);
    find(library, "sd_journal_add_match", found.addMatch);
    find(library, "sd_journal_set_data_threshold", found.setDataThreshold);
    find(library, "sd_journal_get_fd", found.getFd);
    find(library, "sd_journal_process", found.process);
    find(library, "sd_journal_next", found.next);
    find(library, "sd_journal_previous", found.previous);
    find(library, "sd_journal_seek_head", found.seekHead);
    find(library, "sd_journal_seek_tail", found.seekTail);
    find(library, "sd_journal_seek_cursor", found.seekCursor);
    find(library, "sd_journal_test_cursor", found.testCursor);
    find(library, "sd_journal_get_cursor", found.getCursor);
    find(library, "sd_journal_get_data", found.getData);
    find(library, "sd_journal_get_realtime_usec", found.getRealtime);
    find(library, "sd_journal_get_cutoff_realtime_usec", found.getCutoff);
    return found;
}

}  // namespace

const JournalLibrary& JournalLibrary::get() {
    static const JournalLibrary library = load();
    return library;
}

void synchroniseJournal() {
    using namespace std::string_view_literals;
    constexpr std::string_view REQUEST = "{\"method\":\"io.systemd.Journal.Synchronize\",\"parameters\":{}}\0"sv;
    const KxNCommon::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(JOURNALD).copy(address.sun_path, sizeof address.sun_path - 1);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &SYNCHRONISATION_TIME, sizeof SYNCHRONISATION_TIME);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::send(socket.get(), REQUEST.data(), REQUEST.size(), MSG_NOSIGNAL) < 0) {
        return;  // what is in the journal by now has to do
    }
    std::array<char, 256> answer{};
    ssize_t size = 0;
    do {
        size = ::recv(socket.get(), answer.data(), answer.size(), 0);
    } while (size > 0 && answer[static_cast<std::size_t>(size) - 1] != '\0');
}

}  // namespace KxNContainer
