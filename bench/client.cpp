// Clients that cost less than the servers they load, over plain TCP or TLS. HEAD is the whole head of a request:
//   kx-bench-client handshakes SCHEME PORT HEAD SECONDS THREADS  ->  "REQUESTS SECONDS RESUMED TICKETS"
//   kx-bench-client upload SCHEME PORT HEAD FILE                 ->  "SECONDS"
//   kx-bench-client log SCHEME PORT HEAD SECONDS                 ->  "PAYLOAD_BYTES SECONDS MESSAGES CLOSED"
// SCHEME is http or https. The first that fails ends the process with 1.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point started) {
    return std::chrono::duration<double>(Clock::now() - started).count();
}

[[noreturn]] void fail(const char* what) {
    const int error = errno;
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(error));
    ERR_print_errors_fp(stderr);
    std::exit(1);
}

std::atomic<std::uint64_t> ticketsReceived = 0;

/// What every connection of this process is made from. A session is never kept, so each handshake is a full one.
struct Server {
    std::uint16_t port = 0;
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> tls{nullptr, SSL_CTX_free};

    Server(std::string_view scheme, const char* portText)
        : port(static_cast<std::uint16_t>(std::strtoul(portText, nullptr, 10))) {
        if (scheme != "https") {
            return;
        }
        tls.reset(SSL_CTX_new(TLS_client_method()));
        SSL_CTX_set_verify(tls.get(), SSL_VERIFY_NONE, nullptr);
        SSL_CTX_set_options(tls.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
        SSL_CTX_set_session_cache_mode(tls.get(), SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
        SSL_CTX_sess_set_new_cb(tls.get(), [](SSL*, SSL_SESSION*) {
            ++ticketsReceived;
            return 0;
        });
        SSL_CTX_set_read_ahead(tls.get(), 1);  // many records with one system call
        SSL_CTX_set_default_read_buffer_len(tls.get(), 1U << 18U);
    }
};

/// A blocking connection.
class Connection {
public:
    explicit Connection(const Server& server) : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(server.port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        if (descriptor < 0 || connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
            fail("connect");
        }
        if (server.tls) {
            tls.reset(SSL_new(server.tls.get()));
            if (SSL_set_fd(tls.get(), descriptor) != 1 || SSL_connect(tls.get()) != 1) {
                fail("handshake");
            }
        }
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    ~Connection() { close(descriptor); }

    bool resumed() const { return tls && SSL_session_reused(tls.get()) == 1; }

    /// Waits for something to read; 0 at the end of what the peer sends.
    std::size_t read(void* into, std::size_t room) {
        const ssize_t count = tls ? SSL_read(tls.get(), into, static_cast<int>(room)) : recv(descriptor, into, room, 0);
        if (count < 0) {
            fail("receive");
        }
        return static_cast<std::size_t>(count);
    }

    void write(const char* data, std::size_t size) {
        while (size > 0) {
            const std::size_t piece = std::min<std::size_t>(size, 1U << 20U);
            const ssize_t count =
                tls ? SSL_write(tls.get(), data, static_cast<int>(piece)) : send(descriptor, data, piece, MSG_NOSIGNAL);
            if (count <= 0) {
                fail("send");
            }
            data += count;
            size -= static_cast<std::size_t>(count);
        }
    }

    void write(std::string_view text) { write(text.data(), text.size()); }

    /// Sends a file from the page cache, of which plain TCP copies nothing.
    void writeFile(const char* path) {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (file < 0 || fstat(file, &status) != 0) {
            fail(path);
        }
        const auto size = static_cast<std::size_t>(status.st_size);
        if (tls) {
            void* const mapped = mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_POPULATE, file, 0);
            if (mapped == MAP_FAILED) {
                fail(path);
            }
            write(static_cast<const char*>(mapped), size);
            munmap(mapped, size);
        } else {
            for (std::size_t sent = 0; sent < size;) {
                const ssize_t count = sendfile(descriptor, file, nullptr, size - sent);
                if (count <= 0) {
                    fail("sendfile");
                }
                sent += static_cast<std::size_t>(count);
            }
        }
        close(file);
    }

private:
    int descriptor;
    std::unique_ptr<SSL, decltype(&SSL_free)> tls{nullptr, SSL_free};
};

/// Reads whatever is there.
class Input {
public:
    explicit Input(Connection& connection) : source(connection), buffer(1U << 20U) {}

    bool ended() { return position == end && !refill(); }

    std::uint8_t byte() {
        if (ended()) {
            fail("the connection ended");
        }
        return buffer[position++];
    }

    void skip(std::uint64_t count) {
        while (count > end - position) {
            count -= end - position;
            position = end;
            if (!refill()) {
                fail("the connection ended");
            }
        }
        position += count;
    }

    /// The head of an answer, which must have this status.
    void expect(std::string_view status) {
        std::string answer;
        while (answer.size() < 4 || answer.compare(answer.size() - 4, 4, "\r\n\r\n") != 0) {
            answer += static_cast<char>(byte());
        }
        if (answer.compare(9, status.size(), status) != 0) {
            std::fprintf(stderr, "%s", answer.c_str());
            std::exit(1);
        }
    }

private:
    bool refill() {
        position = 0;
        end = source.read(buffer.data(), buffer.size());
        return end > 0;
    }

    Connection& source;
    std::vector<std::uint8_t> buffer;
    std::size_t position = 0;
    std::size_t end = 0;
};

void handshakes(const Server& server, std::string_view head, unsigned seconds, unsigned threads) {
    const auto started = Clock::now();
    std::atomic<std::uint64_t> requests = 0;
    std::atomic<std::uint64_t> resumed = 0;
    const auto work = [&] {
        std::vector<char> answer(1U << 16U);
        while (secondsSince(started) < seconds) {
            Connection connection(server);
            connection.write(head);
            std::size_t received = 0;
            while (const std::size_t count = connection.read(answer.data() + received, answer.size() - received)) {
                received += count;
            }
            if (std::string_view(answer.data(), received).find(" 200 ") != 8) {
                fail("an answer other than 200");
            }
            ++requests;
            resumed += connection.resumed() ? 1 : 0;
        }
    };
    std::vector<std::thread> clients;
    for (unsigned index = 0; index < threads; ++index) {
        clients.emplace_back(work);
    }
    for (std::thread& client : clients) {
        client.join();
    }
    std::printf("%llu %.6f %llu %llu\n", static_cast<unsigned long long>(requests), secondsSince(started),
                static_cast<unsigned long long>(resumed), static_cast<unsigned long long>(ticketsReceived));
}

/// From the request's first byte to the answer's head.
void upload(const Server& server, std::string_view head, const char* path) {
    Connection connection(server);
    Input input(connection);
    const auto started = Clock::now();
    connection.write(head);
    connection.writeFile(path);
    input.expect("20");
    std::printf("%.6f\n", secondsSince(started));
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

/// Until the server closes the stream, or that many seconds.
void readLog(const Server& server, std::string_view head, unsigned seconds) {
    const auto started = Clock::now();
    Connection connection(server);
    Input input(connection);
    connection.write(head);
    input.expect("101");
    std::uint64_t payload = 0;
    std::uint64_t messages = 0;
    bool closed = false;
    while (!closed && secondsSince(started) < seconds) {
        const std::uint8_t first = input.byte();
        const std::uint64_t length = frameLength(input);
        const unsigned opcode = first & 0x0FU;
        input.skip(length);
        if (opcode <= 2) {
            payload += length;
            messages += (first & 0x80U) != 0 ? 1 : 0;
        }
        closed = opcode == 8;
    }
    std::printf("%llu %.6f %llu %d\n", static_cast<unsigned long long>(payload), secondsSince(started),
                static_cast<unsigned long long>(messages), closed ? 1 : 0);
}

}  // namespace

int main(int count, char** arguments) {
    const std::string_view command = count > 1 ? arguments[1] : "";
    const auto numberAt = [&](int index) { return static_cast<unsigned>(std::strtoul(arguments[index], nullptr, 10)); };
    std::signal(SIGPIPE, SIG_IGN);
    if (command == "handshakes" && count == 7) {
        handshakes(Server(arguments[2], arguments[3]), arguments[4], numberAt(5), numberAt(6));
    } else if (command == "upload" && count == 6) {
        upload(Server(arguments[2], arguments[3]), arguments[4], arguments[5]);
    } else if (command == "log" && count == 6) {
        readLog(Server(arguments[2], arguments[3]), arguments[4], numberAt(5));
    } else {
        std::fprintf(stderr, "usage: %s handshakes|upload|log http|https PORT HEAD ...\n", arguments[0]);
        return 2;
    }
    return 0;
}
