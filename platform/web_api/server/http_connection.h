// One connection that speaks HTTP: from its first byte to its end, or to the WebSocket that it becomes.
#pragma once

#include <memory>
#include <string>

#include "platform/net/loop_stream.h"
#include "platform/web_api/connection/connection_registry.h"
#include "platform/web_api/http/request_buffer.h"
#include "platform/web_api/server/client_stream.h"
#include "platform/web_api/server/exchange.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

class HttpConnection : public Connection, public std::enable_shared_from_this<HttpConnection> {
public:
    /// Takes an accepted socket. `core` outlives the connection.
    HttpConnection(ServerCore& core, KxNCommon::UniqueFd socket, std::string peer);
    ~HttpConnection() override;

    /// Serves the connection until it ends.
    void begin();

    void sweep(std::int64_t now) override { client.sweep(now); }
    void onStopping() override { client.leaveIfIdle(); }
    void abort() override { client.stream().cut(); }

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
    bool becomesStream(Exchange& exchange);
    void runOperation(Exchange& exchange, const KxNJson::json* content);

    // Answers, and what is told of them.
    Task<bool> sendAnswer(Exchange& exchange);
    Task<void> tell(const Exchange& exchange);
    Task<void> holdBack();

    ServerCore& core;
    const std::string peer;
    ClientStream client;
    std::string certificateSubject;
    RequestBuffer buffer;
};

}  // namespace KxNTamberWebApi
