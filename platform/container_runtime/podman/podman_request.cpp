#include "platform/container_runtime/podman/podman_request.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/verb.hpp>
#include <boost/beast/http/write.hpp>
#include <cerrno>
#include <memory>
#include <sstream>
#include <string_view>

#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"
#include "platform/container_runtime/podman/podman_api.h"

namespace KxNContainer {

namespace {

namespace http = boost::beast::http;

using KxNNet::Outcome;

constexpr std::size_t CHUNK_SIZE = 64UL << 10;

/// The file that is the body of a request.
class BodyFile {
public:
    explicit BodyFile(const std::string& filePath)
        : path(filePath), file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat status {};
        if (!file || ::fstat(file.get(), &status) != 0) {
            throw unreadable(KxNCommon::systemText(errno));
        }
        if (!S_ISREG(status.st_mode)) {
            throw unreadable("not a regular file");
        }
        left = static_cast<std::uint64_t>(status.st_size);
    }

    std::uint64_t bytesLeft() const { return left; }

    std::string_view read(std::array<char, CHUNK_SIZE>& room) {
        const ssize_t count = ::read(file.get(), room.data(), std::min<std::uint64_t>(left, room.size()));
        if (count <= 0) {
            throw unreadable(count == 0 ? "it became shorter" : KxNCommon::systemText(errno));
        }
        left -= static_cast<std::uint64_t>(count);
        return {room.data(), static_cast<std::size_t>(count)};
    }

private:
    PodmanFailure unreadable(const std::string& reason) const {
        return PodmanFailure("Cannot read '" + path + "': " + reason);
    }

    const std::string& path;
    KxNCommon::UniqueFd file;
    std::uint64_t left = 0;
};

/// The request line and the header, up to the empty line.
std::string buildHeader(const PodmanRequest& request, std::uint64_t bodySize) {
    constexpr std::array VERBS{http::verb::get, http::verb::post, http::verb::delete_};
    http::request<http::empty_body> message(VERBS.at(static_cast<std::size_t>(request.method)),
                                            requestTarget(request.path), 11);
    message.set(http::field::host, "localhost");
    for (const std::string& line : request.headers) {
        const auto header = parseHeaderLine(line);
        if (!header) {
            throw PodmanFailure("Not a header line: " + line, PodmanFailure::UNSENDABLE);
        }
        message.insert({header->name.data(), header->name.size()}, {header->value.data(), header->value.size()});
    }
    if (request.method == KxCCurlHandler::MethodType::POST || bodySize > 0 || request.bodyIsFile) {
        message.content_length(bodySize);
    }
    std::ostringstream text;
    text << message.base();
    return std::move(text).str();
}

/// Sends some of `pieces`. 0 when Podman takes no more; where the connection has ended that shows again when the answer
/// is read, and there it is known whether one had begun.
std::size_t sendSome(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                     std::span<const iovec> pieces) {
    const KxNNet::Step step = connection.write(pieces, limits);
    if (step.outcome != Outcome::done && step.outcome != Outcome::closed) {
        throw failureOf(request, step.outcome, step.error);
    }
    return step.size;
}

void sendHeaderAndBody(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                       std::string_view header, std::string_view body) {
    while (!header.empty() || !body.empty()) {
        const std::array<iovec, 2> pieces{
            {{const_cast<char*>(header.data()), header.size()}, {const_cast<char*>(body.data()), body.size()}}};
        const std::size_t sent = sendSome(connection, request, limits, pieces);
        if (sent == 0) {
            return;
        }
        const std::size_t ofHeader = std::min(sent, header.size());
        header.remove_prefix(ofHeader);
        body.remove_prefix(sent - ofHeader);
    }
}

/// Waits until Podman takes more. False when nothing more is to be sent.
bool waitForRoom(const KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                 const std::function<bool()>& isAnswered) {
    short happened = 0;
    while ((happened & POLLOUT) == 0) {
        const Outcome outcome = connection.wait(POLLOUT | POLLIN, limits, happened);
        if (outcome != Outcome::done) {
            throw failureOf(request, outcome, errno);
        }
        if ((happened & (POLLOUT | POLLIN)) == 0 || ((happened & POLLIN) != 0 && isAnswered())) {
            return false;
        }
    }
    return true;
}

void sendFile(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
              BodyFile& file, const std::function<bool()>& isAnswered) {
    const auto room = std::make_unique<std::array<char, CHUNK_SIZE>>();
    while (file.bytesLeft() > 0) {
        for (std::string_view bytes = file.read(*room); !bytes.empty();) {
            if (!waitForRoom(connection, request, limits, isAnswered)) {
                return;
            }
            const iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
            const std::size_t sent = sendSome(connection, request, limits, {&piece, 1});
            if (sent == 0) {
                return;
            }
            bytes.remove_prefix(sent);
        }
    }
}

}  // namespace

std::string describe(const PodmanRequest& request) {
    constexpr std::array<const char*, 3> NAMES{"GET ", "POST ", "DELETE "};
    return NAMES.at(static_cast<std::size_t>(request.method)) + request.path;
}

PodmanFailure failureOf(const PodmanRequest& request, Outcome outcome, int systemError) {
    switch (outcome) {
        case Outcome::timedOut:
            return PodmanFailure("Podman did not answer in time: " + describe(request));
        case Outcome::cancelled:
            return PodmanFailure("The container service is stopping; the request to Podman was ended");
        case Outcome::closed:
            return PodmanFailure("Podman closed the connection before its answer was complete: " + describe(request));
        default:
            return PodmanFailure("The connection to Podman failed: " + KxNCommon::systemText(systemError));
    }
}

void sendRequest(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                 const std::function<bool()>& isAnswered) {
    if (!request.path.starts_with('/')) {
        throw PodmanFailure("A Podman path begins with '/': " + request.path, PodmanFailure::UNSENDABLE);
    }
    if (!request.bodyIsFile) {
        sendHeaderAndBody(connection, request, limits, buildHeader(request, request.body.size()), request.body);
        return;
    }
    BodyFile file(request.body);
    sendHeaderAndBody(connection, request, limits, buildHeader(request, file.bytesLeft()), {});
    sendFile(connection, request, limits, file, isAnswered);
}

}  // namespace KxNContainer
