#include "platform/container_runtime/podman/podman_answer.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/optional.hpp>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <thread>

namespace KxNContainer {

namespace {

namespace http = boost::beast::http;
namespace asio = boost::asio;

using ErrorCode = boost::system::error_code;

constexpr std::size_t MAX_ANSWER = 64UL << 20;
constexpr std::size_t READ_SIZE = 64UL << 10;

/// A stream is read into this much until it fills it: most say a line now and then, and a thousand may be open.
constexpr std::size_t FIRST_READ_OF_STREAM = 2UL << 10;

/// Podman sends each line of a log by itself. What comes in small pieces is given this time to gather before more is
/// read: that spares a busy log most of its reads, messages and wake-ups, and nobody sees it.
constexpr std::chrono::milliseconds GATHERING_TIME{1};

/// A body type that hands on the bytes of a successful answer where they lie, and keeps all others.
struct AnswerBody {
    struct value_type {
        AnswerSink* sink = nullptr;
        std::string kept;
    };

    class reader {
    public:
        template <class Header>
        reader(const Header& answer, value_type& body) : header(answer), value(body) {}

        void init(const boost::optional<std::uint64_t>& length, ErrorCode& error) {
            if (length && value.sink == nullptr) {
                value.kept.reserve(*length);
            }
            error = {};
        }

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
            if (value.sink != nullptr && header.result_int() / 100 == 2) {
                value.sink->take(bytes);
            } else if (value.sink == nullptr || value.kept.size() < READ_SIZE) {
                value.kept.append(bytes);
            }
        }

        const http::header<false, http::fields>& header;
        value_type& value;
    };
};

using Parser = http::response_parser<AnswerBody>;

std::unique_ptr<Parser> makeParser(AnswerSink* sink) {
    auto parser = std::make_unique<Parser>();
    parser->header_limit(READ_SIZE);
    parser->body_limit(sink == nullptr ? boost::optional<std::uint64_t>(MAX_ANSWER) : boost::none);
    parser->eager(true);
    parser->get().body().sink = sink;
    return parser;
}

/// What came is not an answer that can be used.
PodmanFailure refuse(const PodmanRequest& request, const ErrorCode& error) {
    if (error == http::error::body_limit) {
        return PodmanFailure("Podman's answer is larger than " + std::to_string(MAX_ANSWER >> 20) +
                             " MiB: " + describe(request));
    }
    return PodmanFailure("Podman's answer is not valid HTTP (" + error.message() + "): " + describe(request));
}

class AnswerReader {
public:
    AnswerReader(KxNNet::Stream& from, const PodmanRequest& answered, const KxNNet::WaitLimits& waitLimits,
                 AnswerSink* bodySink)
        : connection(from), request(answered), limits(waitLimits), sink(bodySink), parser(makeParser(bodySink)) {}

    /// Looks at what has come without waiting. True when it is the answer or tells that there will be none, false while
    /// it is nothing or an announcement that Podman goes on.
    bool hasBegunToAnswer() {
        const KxNNet::Step step = receiveWith([this](std::span<char> room) { return connection.tryRead(room); });
        if (step.outcome == KxNNet::Outcome::wantsRead) {
            return false;
        }
        return step.outcome != KxNNet::Outcome::done || !parse() || parser->is_header_done();
    }

    PodmanAnswer run() {
        try {
            while (parse() && receive()) {
            }
        } catch (const PodmanFailure&) {
            if (!isPassingOn()) {
                throw;
            }
        }
        const bool isReusable = parser->is_done() && parser->keep_alive() && buffer.size() == 0;
        return {{std::move(parser->get().body().kept), static_cast<int>(parser->get().result_int())}, isReusable};
    }

private:
    bool isPassingOn() const { return sink != nullptr && parser->is_header_done(); }

    /// Gives the parser what has come. False when nothing more is wanted.
    bool parse() {
        if (parser->is_done()) {
            return false;
        }
        ErrorCode error;
        buffer.consume(parser->put(buffer.data(), error));
        if (parser->is_done() && parser->get().result_int() / 100 == 1) {  // Podman announces that it goes on
            parser = makeParser(sink);
            return buffer.size() == 0 || parse();
        }
        if (error && error != http::error::need_more) {
            throw refuse(request, error);
        }
        return !(isPassingOn() && !sink->flush()) && !parser->is_done();
    }

    /// Waits for more. False when the answer is complete without it, or is a stream that has come to its end, in
    /// whatever way: streams end all the time, and the first exception brings a quarter of a MiB of unwinding tables
    /// into memory.
    bool receive() {
        if (isTrickle) {
            std::this_thread::sleep_for(GATHERING_TIME);
        }
        const KxNNet::Step step = receiveWith([this](std::span<char> room) { return connection.read(room, limits); });
        if (step.outcome != KxNNet::Outcome::done && isPassingOn()) {
            return false;
        }
        if (step.outcome == KxNNet::Outcome::closed && hasBegun) {
            endWithTheConnection();
            return false;
        }
        if (step.outcome != KxNNet::Outcome::done) {
            const PodmanFailure failure = failureOf(request, step.outcome, step.error);
            throw PodmanFailure(failure.what(), failure.status, step.outcome == KxNNet::Outcome::closed);
        }
        isTrickle = isPassingOn() && step.size < READ_SIZE / 8;
        return true;
    }

    template <class Read>
    KxNNet::Step receiveWith(Read read) {
        const std::size_t size = std::min(readSize, READ_SIZE - buffer.size());
        if (size == 0) {
            throw refuse(request, http::error::buffer_overflow);
        }
        const auto room = buffer.prepare(size);
        const KxNNet::Step step = read({static_cast<char*>(room.data()), room.size()});
        if (step.outcome == KxNNet::Outcome::done) {
            buffer.commit(step.size);
            hasBegun = true;
            if (step.size == room.size()) {
                readSize = READ_SIZE;
            }
        }
        return step;
    }

    /// The end of the connection ends an answer that does not tell its length, and breaks off any other.
    void endWithTheConnection() {
        ErrorCode error;
        parser->put_eof(error);
        if (error) {
            throw failureOf(request, KxNNet::Outcome::closed, 0);
        }
    }

    KxNNet::Stream& connection;
    const PodmanRequest& request;
    const KxNNet::WaitLimits& limits;
    AnswerSink* const sink;
    boost::beast::flat_buffer buffer{READ_SIZE};
    std::size_t readSize = sink == nullptr ? READ_SIZE : FIRST_READ_OF_STREAM;
    std::unique_ptr<Parser> parser;
    bool hasBegun = false;
    bool isTrickle = false;
};

}  // namespace

PodmanAnswer exchange(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                      AnswerSink* sink) {
    AnswerReader reader(connection, request, limits, sink);
    sendRequest(connection, request, limits, [&reader] { return reader.hasBegunToAnswer(); });
    return reader.run();
}

}  // namespace KxNContainer
