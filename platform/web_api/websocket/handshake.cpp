#include "platform/web_api/websocket/handshake.h"

#include <openssl/evp.h>

#include <array>

namespace KxNTamberWebApi {

namespace {

constexpr std::string_view KEY_SUFFIX = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
constexpr std::size_t KEY_SIZE = 24;     // 16 bytes in base64
constexpr std::size_t DIGEST_SIZE = 20;  // of SHA-1

bool isKey(std::string_view key) {
    std::array<unsigned char, KEY_SIZE> bytes;
    return key.size() == KEY_SIZE && key.ends_with("==") &&
           EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(key.data()), KEY_SIZE) > 0;
}

}  // namespace

std::optional<std::string> makeUpgradeAnswer(std::string_view key, std::string_view subprotocol) {
    if (!isKey(key)) {
        return std::nullopt;
    }
    const std::string text = std::string(key).append(KEY_SUFFIX);
    std::array<unsigned char, DIGEST_SIZE> digest{};
    EVP_Q_digest(nullptr, "SHA1", nullptr, text.data(), text.size(), digest.data(), nullptr);
    std::array<unsigned char, 32> accept{};
    EVP_EncodeBlock(accept.data(), digest.data(), DIGEST_SIZE);
    std::string answer = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n";
    answer.append("Sec-WebSocket-Accept: ").append(reinterpret_cast<const char*>(accept.data())).append("\r\n");
    if (!subprotocol.empty()) {
        answer.append("Sec-WebSocket-Protocol: ").append(subprotocol).append("\r\n");
    }
    return answer + "\r\n";
}

}  // namespace KxNTamberWebApi
