// Stands for the podman program: "fake_podman [--die-after N | --refuse] system service --time=0 unix://SOCKET" answers
// pings. Says on standard error with what it was started.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "podman_double.h"

int main(int count, char** arguments) {
    const std::string mode = count > 1 ? arguments[1] : "";
    const std::string address = count > 1 ? arguments[count - 1] : "";
    if (mode == "--refuse" || !address.starts_with("unix://")) {
        std::fprintf(stderr, "Error: no storage\n");
        return 125;
    }
    std::string descriptors;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        descriptors += ::fcntl(descriptor, F_GETFD) < 0 ? "" : std::to_string(descriptor) + " ";
    }
    sigset_t blocked;
    ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
    const char* value = std::getenv("KX_FAKE_PODMAN");
    std::fprintf(stderr, "descriptors %s; term %d; environment %s\n", descriptors.c_str(),
                 ::sigismember(&blocked, SIGTERM), value == nullptr ? "" : value);

    const std::string path = address.substr(7);
    std::filesystem::remove(path);
    int answers = mode == "--die-after" ? std::atoi(arguments[2]) : -1;
    const KxNTests::PodmanDouble podman(path, [&](KxNTests::PodmanDouble::Peer& peer) {
        if (peer.readHeader().empty()) {
            return;
        }
        peer.answer(200, "OK");
        if (--answers == 0) {
            std::fprintf(stderr, "level=fatal msg=\"dying\"\n");
            ::_exit(7);
        }
    });
    ::pause();
}
