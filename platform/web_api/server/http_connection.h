// One connection that speaks HTTP: from its first byte to its end, or to the WebSocket that it becomes.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/net/deadline.h"
#include "platform/net/loop_stream.h"
#include "platform/web_api/connection/connection_registry.h"
#include "platform/web_api/http/request_buffer.h"
#include "platform/web_api/server/exchange.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

class Upload;

class HttpConnection : public Connection, public std::enable_shared_from_this<HttpConnection> {
public:
    /// Takes an accepted socket. `core` outlives the connection.
    HttpConnection(ServerCore& core, KxNCommon::UniqueFd socket, std::string peer);
    ~HttpConnection() override;

    /// Serves the connection until it ends.
    void begin();

    void sweep(std::int64_t now) override;
    void onStopping() override;
    void abort() override;

private:
    template <typename Result>
    using Task = KxNNet::Task<Result>;

    // The course of a connection.
    static Task<void> serve(std::shared_ptr<HttpConnection> self);
    Task<bool> openTls();
    Task<bool> readHead(std::size_t& headSize);
    Task<bool> answerRequest(std::size_t headSize);
    Task<void> refuseHead(int status, std::string_view detail);

    // Requests with a body, and streams.
    Task<void> readJson(Exchange& exchange);
    Task<bool> readText(Exchange& exchange, std::string& text);
    void runWithJson(Exchange& exchange, const std::string& text);
    Task<void> takeUpload(Exchange& exchange);  // this and the three below: http_uploads.cpp
    Task<bool> collectBeginning(Upload& upload);
    Task<bool> carryUpload(Upload& upload, const Exchange& exchange);
    template <typename Begin>
    Task<bool> untilDecided(Begin begin);
    bool becomesStream(Exchange& exchange);
    void runOperation(Exchange& exchange, const KxNJson::json* content);

    // Answers, and what is told of them.
    Task<bool> sendAnswer(Exchange& exchange);
    Task<void> tell(const Exchange& exchange);
    Task<void> holdBack();
    Task<bool> sendContinue(const Exchange& exchange);
    Task<bool> send(std::string_view first, std::string_view second);
    Task<void> discard(std::size_t limit);
    void announceEnd();

    ServerCore& core;
    const std::string peer;
    const std::shared_ptr<KxNNet::LoopStream> stream;  // shared with the WebSocket that the connection may become
    std::string certificateSubject;
    RequestBuffer buffer;
    KxNNet::Deadline deadline;
    std::atomic<bool> isIdle{true};      // nothing of a request has arrived
    std::atomic<bool> isSending{false};  // what a passed deadline then ends is the connection, not a request
    std::atomic<bool> isLate{false};     // a deadline has passed
};

}  // namespace KxNTamberWebApi
