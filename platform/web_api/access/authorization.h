// Where a request carries its token: the Authorization field (RFC 6750), or the subprotocols of a browser's WebSocket.
#pragma once

#include <optional>
#include <string_view>

namespace KxNTamberWebApi {

/// The token in an Authorization value "Bearer TOKEN"; null for another scheme or a value that is not of that form.
std::optional<std::string_view> parseBearer(std::string_view authorization);

/// What a client offers in Sec-WebSocket-Protocol.
struct OfferedSubprotocols {
    bool offersWanted = false;              ///< the wanted one is among them
    std::optional<std::string_view> token;  ///< of the first "bearer.TOKEN"
};

/// Reads a Sec-WebSocket-Protocol value; several fields are one when joined by commas. The views lie in `list`.
OfferedSubprotocols parseSubprotocols(std::string_view list, std::string_view wanted = {});

}  // namespace KxNTamberWebApi
