#include "podman_double.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace KxNTests {

namespace {

KxNCommon::UniqueFd listenAt(KxNContainer::PodmanAddress& address) {
    const bool isLocal = !address.socketPath.empty();
    KxNCommon::UniqueFd listener(::socket(isLocal ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    if (isLocal) {
        auto& local = reinterpret_cast<sockaddr_un&>(storage);
        local.sun_family = AF_UNIX;
        address.socketPath.copy(local.sun_path, sizeof local.sun_path - 1);
    } else {
        auto& loopback = reinterpret_cast<sockaddr_in&>(storage);
        loopback.sin_family = AF_INET;
        loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    auto* target = reinterpret_cast<sockaddr*>(&storage);
    if (::bind(listener.get(), target, isLocal ? sizeof(sockaddr_un) : sizeof(sockaddr_in)) != 0 ||
        ::listen(listener.get(), 64) != 0 || ::getsockname(listener.get(), target, &size) != 0) {
        throw std::runtime_error("cannot listen");
    }
    if (!isLocal) {
        address.port = ntohs(reinterpret_cast<sockaddr_in&>(storage).sin_port);
    }
    return listener;
}

}  // namespace

bool PodmanDouble::Peer::receive() {
    std::array<char, 4096> bytes;
    const ssize_t size = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
    received.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return size > 0;
}

std::string PodmanDouble::Peer::readHeader() {
    std::size_t end = received.find("\r\n\r\n");
    while (end == std::string::npos && receive()) {
        end = received.find("\r\n\r\n");
    }
    return end == std::string::npos ? std::string() : readBody(end + 4);
}

std::string PodmanDouble::Peer::readBody(std::size_t size) {
    while (received.size() < size && receive()) {
    }
    std::string bytes = received.substr(0, size);
    received.erase(0, size);
    return bytes;
}

void PodmanDouble::Peer::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t size = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
}

void PodmanDouble::Peer::answer(int status, std::string_view body) {
    send("HTTP/1.1 " + std::to_string(status) + " Status\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + std::string(body));
}

void PodmanDouble::Peer::sendChunk(std::string_view bytes) {
    std::array<char, 20> length;
    std::snprintf(length.data(), length.size(), "%zx\r\n", bytes.size());
    send(length.data() + std::string(bytes) + "\r\n");
}

bool PodmanDouble::Peer::waitForClose() {
    pollfd closed{socket.get(), POLLRDHUP, 0};
    return ::poll(&closed, 1, 10'000) > 0;
}

PodmanDouble::PodmanDouble(const std::string& path, Script serverScript)
    : listening{path, 0}, script(std::move(serverScript)), listener(listenAt(listening)), thread([this] { serve(); }) {}

PodmanDouble::~PodmanDouble() {
    ::shutdown(listener.get(), SHUT_RDWR);
    thread.join();
}

void PodmanDouble::serve() {
    for (;;) {
        KxNCommon::UniqueFd socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket) {
            return;
        }
        ++accepted;
        Peer peer(std::move(socket));
        script(peer);
    }
}

}  // namespace KxNTests
