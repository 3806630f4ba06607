#include "platform/container_runtime/compose/project_name.h"

#include <openssl/sha.h>

#include "platform/common/text.h"

namespace KxNContainer {

namespace {

std::string sha256(const std::string& text) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    ::SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    return KxNCommon::toHex({reinterpret_cast<const char*>(digest), sizeof digest});
}

}  // namespace

std::string projectName(const std::string& fileName) {
    // docker-compose takes lower-case letters, digits, '-' and '_' only and drops the rest; the prefix makes sure of
    // the letter that Podman wants first.
    std::string name = "kx-";
    for (const char character : fileName) {
        const bool isPlain = (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9');
        if (isPlain || character == '-') {
            name += character;
        } else {
            name += '_';
            KxNCommon::appendHex(name, character);
        }
    }
    // Podman names files after networks, and those are named after the project. Above, a '_' never follows another.
    constexpr std::size_t maxLength = 100;
    constexpr std::size_t readableLength = 32;
    if (name.size() > maxLength) {
        name = name.substr(0, readableLength) + "__" + sha256(fileName);
    }
    return name;
}

}  // namespace KxNContainer
