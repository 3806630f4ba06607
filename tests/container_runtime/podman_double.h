// A Podman whose every byte the test decides.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "platform/common/unique_fd.h"
#include "platform/container_runtime/podman/podman_address.h"

namespace KxNTests {

class PodmanDouble {
public:
    /// One accepted connection. It is closed when the script returns.
    class Peer {
    public:
        explicit Peer(KxNCommon::UniqueFd descriptor) : socket(std::move(descriptor)) {}

        /// The next request's header block, empty when the client has gone.
        std::string readHeader();
        /// The next `size` bytes, or what came of them.
        std::string readBody(std::size_t size);
        void send(std::string_view bytes);
        /// Sends a whole answer with its length.
        void answer(int status, std::string_view body);
        /// Sends one chunk of a chunked answer.
        void sendChunk(std::string_view bytes);
        /// Waits until the client has closed its side; false after some seconds.
        bool waitForClose();

    private:
        bool receive();

        KxNCommon::UniqueFd socket;
        std::string received;
    };
    using Script = std::function<void(Peer&)>;

    /// Runs `script` for each connection, one after the other, on a unix socket at `path`, or on a free TCP port when
    /// it is empty.
    PodmanDouble(const std::string& path, Script script);
    ~PodmanDouble();

    const KxNContainer::PodmanAddress& address() const { return listening; }
    int connections() const { return accepted; }

private:
    void serve();

    KxNContainer::PodmanAddress listening;
    Script script;
    KxNCommon::UniqueFd listener;
    std::atomic<int> accepted{0};
    std::thread thread;
};

}  // namespace KxNTests
