// The server's answer to a request for the upgrade to a WebSocket (RFC 6455, section 4.2.2).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

/// The whole answer, or null when `key`, the client's Sec-WebSocket-Key, is not 16 bytes in base64. `subprotocol` is
/// the one selected, empty for none.
std::optional<std::string> makeUpgradeAnswer(std::string_view key, std::string_view subprotocol);

}  // namespace KxNTamberWebApi
