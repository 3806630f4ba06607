// One connection that speaks HTTP: from its first byte to its end, or to the WebSocket that it becomes.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_buffer.h"
#include "platform/web_api/http/request_parser.h"
#include "platform/web_api/server/connection.h"
#include "platform/web_api/server/server_core.h"
#include "platform/web_api/server/transport.h"
#include "platform/web_api/server/upload.h"

namespace KxNTamberWebApi {

class Session : public Connection, public std::enable_shared_from_this<Session> {
public:
    /// `core` outlives the session.
    Session(ServerCore& core, Socket socket, std::string peer);
    ~Session() override;

    /// Serves the connection until it ends.
    void begin();

    void sweep(std::int64_t now) override;
    void onStopping() override;
    void abort() override;

private:
    /// One request and its answer. Lives from the end of the head to the end of the answer.
    struct Exchange {
        std::optional<RequestParser> parser;
        std::optional<BodyDecoder> body;  ///< once the head has passed the checks
        RouteMatch match;
        std::string identity;
        std::string uploadedName;
        KxCResponse::State response;
        bool keepsConnection = true;
        bool expectsContinue = false;
        bool mayComeIn = false;
        std::chrono::steady_clock::time_point begunAt = std::chrono::steady_clock::now();

        const RequestParser::value_type& request() const { return parser->get(); }
        void refuse(int status, std::string_view detail) { response.answer = makeRefusal(status, detail); }
    };

    /// What is to be done with a request whose head was looked at.
    enum class Next { answer, readJson, takeUpload, openStream };

    // The course of a connection.
    static Task<void> serve(std::shared_ptr<Session> self);
    Task<bool> openTls();
    Task<bool> readHead(std::size_t& headSize);
    Task<bool> answerRequest(std::size_t headSize);
    Task<bool> sendAnswer(Exchange& exchange);
    Task<bool> send(std::array<asio::const_buffer, 2> buffers);
    bool skipBufferedBody(Exchange& exchange);
    Task<void> discard(std::size_t limit);
    Task<void> refuseHead(int status, std::string_view detail);
    Task<void> close();

    // What a head asks for.
    Next examine(Exchange& exchange, std::string_view head);
    bool parseHead(Exchange& exchange, std::string_view head);
    bool checkHead(Exchange& exchange);
    void findRoute(Exchange& exchange) const;
    bool route(Exchange& exchange);
    Next examineBody(Exchange& exchange);
    Next examineJson(Exchange& exchange);
    Next examineStream(Exchange& exchange);
    void runOperation(Exchange& exchange, const KxNJson::json* content);
    void writeAuditLine(const Exchange& exchange) const;

    // Requests with a body, and streams.
    Task<void> readJson(Exchange& exchange);
    Task<bool> readText(Exchange& exchange, std::string& text);
    void runWithJson(Exchange& exchange, const std::string& text);
    Task<void> takeUpload(Exchange& exchange);
    Task<bool> sendContinue(const Exchange& exchange);
    bool describeUpload(Exchange& exchange, UploadRequest& upload);
    void openStream(Exchange& exchange);

    ServerCore& core;
    const std::string peer;
    std::shared_ptr<Transport> transport;  // shared with the stream that the connection may become
    std::string certificateSubject;
    RequestBuffer buffer;
    KxNNet::Deadline deadline;
    std::atomic<bool> isIdle{true};      // nothing of a request has arrived
    std::atomic<bool> isSending{false};  // what a passed deadline then ends is the connection, not a request
    std::atomic<bool> isLate{false};     // a deadline has passed
};

}  // namespace KxNTamberWebApi
