#include "platform/container_runtime/podman/podman_client.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/optional.hpp>
#include <cerrno>
#include <memory>
#include <thread>

#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"
#include "platform/container_runtime/podman/podman_api.h"

namespace KxNContainer {

namespace {

namespace http = boost::beast::http;
namespace asio = boost::asio;

using ErrorCode = boost::system::error_code;
using Result = PodmanConnection::Result;
using Method = KxCCurlHandler::MethodType;

constexpr int UNREACHABLE = 503;
constexpr int UNSENDABLE = 400;
constexpr std::size_t MAX_ANSWER = 64UL << 20;
constexpr std::size_t READ_SIZE = 64UL << 10;
constexpr std::chrono::seconds PING_TIME{5};

/// Podman sends each line of a log by itself. What comes in small pieces is given this time to gather before more is
/// read: that spares a busy log most of its reads, messages and wake-ups, and nobody sees it.
constexpr std::chrono::milliseconds GATHERING_TIME{1};

/// A request that came to no answer. Becomes the reply.
struct Failure {
    int status;
    std::string reason;
    bool died = false;  ///< the connection ended before the first byte of an answer
};

/// The connection as Beast's synchronous operations want it. Keeps how the last operation ended, which Beast's own
/// errors do not tell.
class Stream {
public:
    Stream(PodmanConnection& podman, const CallLimits& callLimits) : connection(podman), limits(callLimits) {}

    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, ErrorCode& error) {
        const asio::mutable_buffer buffer = *asio::buffer_sequence_begin(buffers);
        std::size_t received = 0;
        last = connection.receive(buffer.data(), buffer.size(), limits, received);
        answerBegan = answerBegan || received > 0;
        error = translate();
        return received;
    }

    template <class Buffers>
    std::size_t write_some(const Buffers& buffers, ErrorCode& error) {
        std::array<iovec, 8> pieces;
        std::size_t count = 0;
        for (auto at = asio::buffer_sequence_begin(buffers);
             at != asio::buffer_sequence_end(buffers) && count < pieces.size(); ++at) {
            const asio::const_buffer buffer = *at;
            pieces[count++] = {const_cast<void*>(buffer.data()), buffer.size()};
        }
        std::size_t sent = 0;
        last = connection.send(pieces.data(), count, limits, sent);
        error = translate();
        return sent;
    }

    // Beast asks for these too, but uses only those above.
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        ErrorCode error;
        const std::size_t size = read_some(buffers, error);
        return error ? throw boost::system::system_error(error) : size;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers) {
        ErrorCode error;
        const std::size_t size = write_some(buffers, error);
        return error ? throw boost::system::system_error(error) : size;
    }

    PodmanConnection& connection;
    const CallLimits& limits;
    Result last = Result::Ok;
    bool answerBegan = false;

private:
    ErrorCode translate() const {
        switch (last) {
            case Result::Ok:
                return {};
            case Result::Closed:
                return asio::error::eof;
            case Result::TimedOut:
                return asio::error::timed_out;
            case Result::Cancelled:
                return asio::error::operation_aborted;
            case Result::Failed:
                break;
        }
        return {connection.error(), boost::system::system_category()};
    }
};

std::string describe(const PodmanRequest& request) {
    constexpr std::array<const char*, 3> NAMES{"GET ", "POST ", "DELETE "};
    return NAMES.at(static_cast<std::size_t>(request.method)) + request.path;
}

/// The reason for a request that ended with `result`, or with Beast's `error` where the connection itself did well.
Failure failureOf(const PodmanRequest& request, Result result, const ErrorCode& error, int systemError) {
    switch (result) {
        case Result::TimedOut:
            return {UNREACHABLE, "Podman did not answer in time: " + describe(request)};
        case Result::Cancelled:
            return {UNREACHABLE, "The container service is stopping; the request to Podman was ended"};
        case Result::Closed:
            return {UNREACHABLE, "Podman closed the connection before its answer was complete: " + describe(request)};
        case Result::Failed:
            return {UNREACHABLE, "The connection to Podman failed: " + KxNCommon::systemText(systemError)};
        case Result::Ok:
            break;
    }
    if (error == http::error::body_limit) {
        return {UNREACHABLE,
                "Podman's answer is larger than " + std::to_string(MAX_ANSWER >> 20) + " MiB: " + describe(request)};
    }
    return {UNREACHABLE, "Podman's answer is not valid HTTP (" + error.message() + "): " + describe(request)};
}

PodmanConnection connect(const PodmanAddress& address, const CallLimits& limits) {
    PodmanConnection connection;
    switch (connection.open(address, limits)) {
        case Result::Ok:
            return connection;
        case Result::TimedOut:
            throw Failure{UNREACHABLE, "Podman cannot be reached at " + address.text() + ": it accepts no connection"};
        case Result::Cancelled:
            throw Failure{UNREACHABLE, "The container service is stopping"};
        case Result::Closed:
        case Result::Failed:
            break;
    }
    throw Failure{UNREACHABLE,
                  "Podman cannot be reached at " + address.text() + ": " + KxNCommon::systemText(connection.error())};
}

/// The file that is the body of a request.
struct BodyFile {
    KxNCommon::UniqueFd file;
    std::uint64_t size = 0;
};

BodyFile openBody(const std::string& path) {
    BodyFile body{KxNCommon::UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))};
    struct stat status {};
    if (!body.file || ::fstat(body.file.get(), &status) != 0) {
        throw Failure{UNREACHABLE, "Cannot read '" + path + "': " + KxNCommon::systemText(errno)};
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure{UNREACHABLE, "Cannot read '" + path + "': not a regular file"};
    }
    body.size = static_cast<std::uint64_t>(status.st_size);
    return body;
}

http::request<http::string_body> buildRequest(const PodmanRequest& request) {
    constexpr std::array VERBS{http::verb::get, http::verb::post, http::verb::delete_};
    if (!request.path.starts_with('/')) {
        throw Failure{UNSENDABLE, "A Podman path begins with '/': " + request.path};
    }
    http::request<http::string_body> message(VERBS.at(static_cast<std::size_t>(request.method)),
                                             requestTarget(request.path), 11);
    message.set(http::field::host, "localhost");
    for (const std::string& line : request.headers) {
        const auto header = parseHeaderLine(line);
        if (!header) {
            throw Failure{UNSENDABLE, "Not a header line: " + line};
        }
        message.insert({header->name.data(), header->name.size()}, {header->value.data(), header->value.size()});
    }
    return message;
}

/// Sends the file behind its header. An answer that comes meanwhile ends it: Podman has made up its mind. So does a
/// connection that Podman closes, after which an answer may still be waiting.
void sendFile(Stream& stream, const PodmanRequest& request, BodyFile& body) {
    const auto chunk = std::make_unique<std::array<char, READ_SIZE>>();
    for (std::uint64_t left = body.size; left > 0;) {
        const ssize_t count = ::read(body.file.get(), chunk->data(), std::min<std::uint64_t>(left, chunk->size()));
        if (count <= 0) {
            const std::string reason = count == 0 ? "it became shorter" : KxNCommon::systemText(errno);
            throw Failure{UNREACHABLE, "Cannot read '" + request.body + "': " + reason};
        }
        left -= static_cast<std::uint64_t>(count);
        std::string_view bytes(chunk->data(), static_cast<std::size_t>(count));
        while (!bytes.empty()) {
            std::size_t sent = 0;
            stream.last = stream.connection.sendUnlessAnswered(bytes, stream.limits, sent);
            if (stream.last != Result::Ok && stream.last != Result::Closed) {
                throw failureOf(request, stream.last, {}, stream.connection.error());
            }
            if (sent == 0) {
                return;
            }
            bytes.remove_prefix(sent);
        }
    }
}

/// Sends the whole request, or as much of it as Podman takes.
void sendRequest(Stream& stream, const PodmanRequest& request) {
    auto message = buildRequest(request);
    ErrorCode error;
    if (request.bodyIsFile) {
        BodyFile file = openBody(request.body);
        message.content_length(file.size);
        http::request_serializer<http::string_body> serializer(message);
        http::write_header(stream, serializer, error);
        if (!error) {
            sendFile(stream, request, file);
        }
    } else {
        message.body() = request.body;
        if (request.method == Method::POST || !request.body.empty()) {
            message.content_length(request.body.size());
        }
        http::write(stream, message, error);
    }
    // A closed connection shows again when the answer is read, and there it is known whether one had begun.
    if (error && stream.last != Result::Closed) {
        throw failureOf(request, stream.last, error, stream.connection.error());
    }
}

void checkAnswer(const Stream& stream, const PodmanRequest& request, const ErrorCode& error) {
    if (error) {
        Failure failure = failureOf(request, stream.last, error, stream.connection.error());
        failure.died = stream.last == Result::Closed && !stream.answerBegan;
        throw Failure(failure);
    }
}

/// Reads headers until they are those of the answer itself; Podman may announce that it goes on first.
template <class Parser>
void readHeader(Stream& stream, const PodmanRequest& request, boost::beast::flat_buffer& buffer,
                std::unique_ptr<Parser>& parser, const boost::optional<std::uint64_t>& bodyLimit) {
    for (bool isInterim = true; isInterim;) {
        parser = std::make_unique<Parser>();
        parser->header_limit(READ_SIZE);
        parser->body_limit(bodyLimit);  // before the header, whose Content-Length is held against it
        ErrorCode error;
        http::read_header(stream, buffer, *parser, error);
        checkAnswer(stream, request, error);
        isInterim = parser->get().result_int() / 100 == 1;
    }
}

/// A body type that hands on the bytes of a successful answer where they lie, and keeps those of any other.
struct SinkBody {
    struct value_type {
        AnswerSink* sink = nullptr;
        std::string problem;
    };

    class reader {
    public:
        template <class Header>
        reader(const Header& answer, value_type& body) : header(answer), value(body) {}

        void init(const boost::optional<std::uint64_t>&, ErrorCode& error) { error = {}; }

        template <class Buffers>
        std::size_t put(const Buffers& buffers, ErrorCode& error) {
            error = {};
            std::size_t size = 0;
            for (auto at = asio::buffer_sequence_begin(buffers); at != asio::buffer_sequence_end(buffers); ++at) {
                const asio::const_buffer buffer = *at;
                size += buffer.size();
                take({static_cast<const char*>(buffer.data()), buffer.size()});
            }
            return size;
        }

        void finish(ErrorCode& error) { error = {}; }

    private:
        void take(std::string_view bytes) {
            if (header.result_int() / 100 == 2) {
                value.sink->take(bytes);
            } else if (value.problem.size() < READ_SIZE) {
                value.problem.append(bytes);
            }
        }

        const http::header<false, http::fields>& header;
        value_type& value;
    };
};

struct Answer {
    PodmanReply reply;
    bool isReusable;
};

Answer readWhole(Stream& stream, const PodmanRequest& request) {
    boost::beast::flat_buffer buffer(READ_SIZE);
    buffer.reserve(READ_SIZE);
    std::unique_ptr<http::response_parser<http::string_body>> parser;
    readHeader(stream, request, buffer, parser, MAX_ANSWER);
    ErrorCode error;
    http::read(stream, buffer, *parser, error);
    checkAnswer(stream, request, error);
    const bool isReusable = parser->keep_alive() && buffer.size() == 0;
    return {{std::move(parser->get().body()), static_cast<int>(parser->get().result_int())}, isReusable};
}

Answer readStreamed(Stream& stream, const PodmanRequest& request, AnswerSink& sink) {
    boost::beast::flat_buffer buffer(READ_SIZE);
    buffer.reserve(READ_SIZE);
    std::unique_ptr<http::response_parser<SinkBody>> parser;
    readHeader(stream, request, buffer, parser, boost::none);
    parser->get().body().sink = &sink;
    parser->eager(true);
    bool isTrickle = false;
    while (!parser->is_done()) {
        ErrorCode error;
        buffer.consume(parser->put(buffer.data(), error));
        if (!sink.flush() || (error && error != http::error::need_more)) {
            break;
        }
        // Beast's own loop reads on while a chunk is incomplete, which every chunk is whose end it has not seen.
        if (!parser->is_done()) {
            if (isTrickle) {
                std::this_thread::sleep_for(GATHERING_TIME);
            }
            const std::size_t received = stream.read_some(buffer.prepare(READ_SIZE - buffer.size()), error);
            if (error) {
                break;
            }
            buffer.commit(received);
            isTrickle = received < READ_SIZE / 8;
        }
    }
    const bool isReusable = parser->is_done() && parser->keep_alive() && buffer.size() == 0;
    return {{std::move(parser->get().body().problem), static_cast<int>(parser->get().result_int())}, isReusable};
}

/// Sends the request and has `read` take the answer; keeps the connection if it can be used again.
template <class Read>
PodmanReply exchange(PodmanConnection connection, const PodmanRequest& request, const CallLimits& limits,
                     ConnectionPool& pool, const Read& read) {
    Stream stream(connection, limits);
    sendRequest(stream, request);
    Answer answer = read(stream);
    if (answer.isReusable && !request.bodyIsFile) {  // of a file some may not have been sent
        pool.put(std::move(connection));
    }
    return std::move(answer.reply);
}

template <class Read>
PodmanReply call(const PodmanAddress& address, const PodmanRequest& request, const CallLimits& limits,
                 ConnectionPool& pool, const Read& read) {
    try {
        // Only a GET may be sent again when a kept connection turns out to have been closed meanwhile, so that only a
        // GET goes on a kept one.
        std::optional<PodmanConnection> kept = request.method == Method::GET ? pool.take() : std::nullopt;
        if (kept) {
            try {
                return exchange(std::move(*kept), request, limits, pool, read);
            } catch (const Failure& failure) {
                if (!failure.died) {
                    throw;
                }
            }
        }
        return exchange(connect(address, limits), request, limits, pool, read);
    } catch (const Failure& failure) {
        return {failure.reason, failure.status};
    } catch (const std::exception& error) {
        return {std::string("The request to Podman failed: ") + error.what(), UNREACHABLE};
    }
}

}  // namespace

void PodmanClient::setAddress(const PodmanAddress& newAddress) {
    const std::lock_guard lock(addressMutex);
    address = newAddress;
    pool.closeAll();
}

PodmanAddress PodmanClient::getAddress() const {
    const std::lock_guard lock(addressMutex);
    return address;
}

PodmanReply PodmanClient::execute(const PodmanRequest& request, const CallLimits& limits) {
    PodmanReply reply =
        call(getAddress(), request, limits, pool, [&](Stream& stream) { return readWhole(stream, request); });
    correctStatus(request.path, request.method, reply);
    return reply;
}

PodmanReply PodmanClient::stream(const PodmanRequest& request, const CallLimits& limits, AnswerSink& sink) {
    return call(getAddress(), request, limits, pool,
                [&](Stream& stream) { return readStreamed(stream, request, sink); });
}

bool PodmanClient::ping(const KxNNet::Cancellation& cancellation, std::string* reason, pid_t* server) {
    const PodmanRequest request{"/_ping", Method::GET, {}, {}};
    const CallLimits limits{cancellation, std::chrono::steady_clock::now() + PING_TIME};
    const PodmanReply reply = call(getAddress(), request, limits, pool, [&](Stream& stream) {
        if (server != nullptr) {
            *server = stream.connection.peer();
        }
        return readWhole(stream, request);
    });
    if (reply.status == 200) {
        return true;
    }
    if (reason != nullptr) {
        *reason =
            reply.status == UNREACHABLE ? reply.body : "Podman answers with status " + std::to_string(reply.status);
    }
    return false;
}

}  // namespace KxNContainer
