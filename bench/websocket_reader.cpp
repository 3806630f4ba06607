// Reads a log stream through the service as fast as it comes, for some seconds, and tells what arrived:
//   kx-bench-websocket-reader PORT TARGET AUTHORIZATION SECONDS  ->  "PAYLOAD_BYTES SECONDS MESSAGES"
// Keeps nothing, so that the reader is not what is measured.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

/// Reads whatever is there from a socket; a view of it lasts until the next call.
class Input {
public:
    explicit Input(int connection) : source(connection), buffer(1U << 20U) {}

    std::uint8_t byte() {
        if (position == end) {
            refill();
        }
        return buffer[position++];
    }

    void skip(std::uint64_t count) {
        while (count > end - position) {
            count -= end - position;
            refill();
        }
        position += count;
    }

private:
    void refill() {
        const ssize_t count = recv(source, buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            fail("the stream ended");
        }
        position = 0;
        end = static_cast<std::size_t>(count);
    }

    int source;
    std::vector<std::uint8_t> buffer;
    std::size_t position = 0;
    std::size_t end = 0;
};

int connectTo(std::uint16_t port) {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connection < 0 || connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        fail("connect");
    }
    return connection;
}

void upgrade(int connection, Input& input, const std::string& target, const std::string& authorization) {
    const std::string request = "GET " + target +
                                " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                                "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: a3gtYmVuY2gta2V5LTAwMQ==\r\n"
                                "Authorization: " +
                                authorization + "\r\n\r\n";
    if (send(connection, request.data(), request.size(), 0) != static_cast<ssize_t>(request.size())) {
        fail("send");
    }
    std::string answer;
    while (answer.size() < 4 || answer.compare(answer.size() - 4, 4, "\r\n\r\n") != 0) {
        answer += static_cast<char>(input.byte());
    }
    if (answer.find(" 101 ") == std::string::npos) {
        std::fprintf(stderr, "%s", answer.c_str());
        std::exit(1);
    }
}

std::uint64_t frameLength(Input& input) {
    const std::uint8_t announced = input.byte() & 0x7FU;
    if (announced < 126) {
        return announced;
    }
    std::uint64_t length = 0;
    for (int remaining = announced == 126 ? 2 : 8; remaining > 0; --remaining) {
        length = length << 8U | input.byte();
    }
    return length;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 5) {
        std::fprintf(stderr, "usage: %s PORT TARGET AUTHORIZATION SECONDS\n", arguments[0]);
        return 2;
    }
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    const auto end = started + std::chrono::seconds(std::strtoul(arguments[4], nullptr, 10));
    const int connection = connectTo(static_cast<std::uint16_t>(std::strtoul(arguments[1], nullptr, 10)));
    Input input(connection);
    upgrade(connection, input, arguments[2], arguments[3]);
    std::uint64_t payload = 0;
    std::uint64_t messages = 0;
    while (Clock::now() < end) {
        const std::uint8_t first = input.byte();
        const std::uint64_t length = frameLength(input);
        const unsigned opcode = first & 0x0FU;
        if (opcode > 2) {  // a close or a ping
            fail("not a fast stream");
        }
        input.skip(length);
        payload += length;
        messages += (first & 0x80U) != 0 ? 1 : 0;
    }
    const std::chrono::duration<double> seconds = Clock::now() - started;
    std::printf("%llu %.6f %llu\n", static_cast<unsigned long long>(payload), seconds.count(),
                static_cast<unsigned long long>(messages));
    close(connection);
    return 0;
}
