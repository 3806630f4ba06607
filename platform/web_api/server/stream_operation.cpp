#include "platform/web_api/server/stream_operation.h"

#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include "KxErrorManager.h"
#include "KxLog.h"
#include "platform/web_api/access/authorization.h"
#include "platform/web_api/operation/operation.h"
#include "platform/web_api/websocket/handshake.h"
#include "platform/web_api/websocket/web_socket.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;

namespace {

/// What the thread of a stream needs.
struct StreamOperation {
    ServerCore& core;
    RouteMatch match;
    std::shared_ptr<KxCWebSocket::State> connection;

    void run() const;
};

void StreamOperation::run() const {
    const HandlerUse use(core.served.at(match.endpoint).registration);
    if (use.handler() == nullptr) {
        connection->setCloseCode(CLOSE_GOING_AWAY);
        connection->release();
        return;
    }
    KxCErrorListPool pool;
    auto* const socket = new KxCWebSocket(connection);  // the operation's, which deletes it
    if (core.isStopping) {
        connection->end();
    }
    try {
        use.handler()->handleWebSocket(pool, match.endpoint, match.values(), socket);
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: stream %s threw: %s", match.endpoint->operationId,
                   failure.what());
    } catch (...) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: stream %s threw", match.endpoint->operationId);
    }
    logErrors(pool, match.endpoint->operationId);
    if (!connection->isReleased()) {
        connection->setCloseCode(CLOSE_SERVER_FAILED);
        delete socket;
    }
    if (core.observer != nullptr) {
        core.observer->onStreamEnded(*match.endpoint);
    }
}

}  // namespace

bool openStream(ServerCore& core, Exchange& exchange, const std::shared_ptr<KxNNet::LoopStream>& stream,
                std::string_view readAhead) {
    const RequestHead& request = exchange.request();
    const std::string_view subprotocol = exchange.response.stream.subprotocol;
    const bool isOffered =
        parseSubprotocols(joinFields(request, field::sec_websocket_protocol), subprotocol).offersWanted;
    const auto answer =
        request.count(field::sec_websocket_key) == 1
            ? makeUpgradeAnswer(request[field::sec_websocket_key], isOffered ? subprotocol : std::string_view())
            : std::nullopt;
    if (!answer) {
        return false;
    }
    auto connection = std::make_shared<KxCWebSocket::State>(core.connections, core.requests, core.limits, stream,
                                                            std::move(exchange.response.stream));
    auto operation = std::make_shared<StreamOperation>(StreamOperation{core, std::move(exchange.match), connection});
    connection->setGrant(exchange.caller.grant);
    connection->start(*answer, std::string(readAhead), [operation = std::move(operation)] {
        try {
            operation->core.streams.start([operation] { operation->run(); });
        } catch (const std::system_error& failure) {
            KxCRTE_LOG(4, "Korvex Container Service: Web API cannot make a stream thread: %s", failure.what());
            operation->connection->setCloseCode(CLOSE_SERVER_FAILED);
            operation->connection->release();
        }
    });
    return true;
}

}  // namespace KxNTamberWebApi
