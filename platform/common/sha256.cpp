// SHA256_Init and its like are deprecated for EVP, which loads OpenSSL's providers: 2 MiB of a server without TLS.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/common/sha256.h"

#include <openssl/sha.h>

#include "platform/common/text.h"

namespace KxNCommon {

Sha256 sha256(std::string_view bytes) {
    SHA256_CTX hash;
    Sha256 digest;
    SHA256_Init(&hash);
    SHA256_Update(&hash, bytes.data(), bytes.size());
    SHA256_Final(digest.data(), &hash);
    return digest;
}

std::string sha256Hex(std::string_view bytes) {
    const Sha256 digest = sha256(bytes);
    return toHex({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace KxNCommon
