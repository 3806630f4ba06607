// The answer to a request.
#pragma once

#include <cstdint>
#include <string_view>

#include "KxJsonFwd.h"
#include "KxTamberWebApi/KxWebSocket.h"

class KxCErrorListPool;

namespace KxNTamberWebApi {

/// The answer of one operation. Belongs to the library and is valid during the call; one thread at a time.
/// The last call wins; an operation is expected to make exactly one. None of them adds an error to the pool unless
/// the answer could not be built.
class KxCResponse {
public:
    struct State;  ///< the library's own side of the answer
    explicit KxCResponse(State& answerState) : state(&answerState) {}
    KxCResponse(const KxCResponse&) = delete;
    KxCResponse& operator=(const KxCResponse&) = delete;

    /// Answers an error as RFC 9457 problem details: `statusName` is the title, `message` the detail. Both are copied.
    /// `flag` 1 says that the answer is complete; there is no other value.
    void setError(KxCErrorListPool& pool, int code, const char* statusName, const char* message, int flag);
    /// The same for a message that may hold null characters: all of it is answered.
    void setError(KxCErrorListPool& pool, int code, const char* statusName, std::string_view message, int flag);

    /// Answers `code` with a JSON document, written compactly, invalid UTF-8 replaced. Not kept after the call.
    void setJsonBody(KxCErrorListPool& pool, int code, const KxNJson::json* document);

    /// Answers `code` with JSON text that is already serialised. Copied.
    void setJsonBody(KxCErrorListPool& pool, int code, const char* text);

    /// Answers `code` with a text of another kind. `mediaType` is a constant; the text is copied.
    void setTextBody(KxCErrorListPool& pool, int code, const char* mediaType, std::string_view text);

    /// Answers without a body; 0 stands for the default status of an empty answer, 204.
    void setEmptyBody(KxCErrorListPool& pool, int code);

    /// Answers by switching the connection to a WebSocket, after which KxCHandler::handleWebSocket is called on a
    /// thread of its own. `name` names the stream in logs and is copied. The callbacks may be null. The contexts and
    /// lengths are passed to them as they are and must stay valid until the socket is destroyed.
    void switchWebSocket(KxCErrorListPool& pool, const char* name, KxCWebSocket::DataCallback dataCallback,
                         const void* dataContext, std::uint32_t dataLength, KxCWebSocket::CloseCallback closeCallback,
                         const void* closeContext, std::uint32_t closeLength);

    /// Names the subprotocol (RFC 6455, section 1.9) of the WebSocket that `switchWebSocket` has asked for, which the
    /// server selects when the client offers it; kx.logs.v1 where nobody calls this. `name` is a constant.
    void setSubprotocol(const char* name);

private:
    State* state;
};

}  // namespace KxNTamberWebApi
