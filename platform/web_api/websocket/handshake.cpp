// SHA1_Init and its like are deprecated for EVP, which loads OpenSSL's providers: 2 MiB of a server without TLS, for
// this alone. What is hashed here is no secret (RFC 6455, section 10.8).
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/web_api/websocket/handshake.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <array>

namespace KxNTamberWebApi {

namespace {

constexpr std::string_view KEY_SUFFIX = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
constexpr std::size_t KEY_SIZE = 24;  // 16 bytes in base64

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
    SHA_CTX hash;
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1_Init(&hash);
    SHA1_Update(&hash, text.data(), text.size());
    SHA1_Final(digest.data(), &hash);
    std::array<unsigned char, 32> accept{};
    EVP_EncodeBlock(accept.data(), digest.data(), SHA_DIGEST_LENGTH);
    std::string answer = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n";
    answer.append("Sec-WebSocket-Accept: ").append(reinterpret_cast<const char*>(accept.data())).append("\r\n");
    if (!subprotocol.empty()) {
        answer.append("Sec-WebSocket-Protocol: ").append(subprotocol).append("\r\n");
    }
    return answer + "\r\n";
}

}  // namespace KxNTamberWebApi
