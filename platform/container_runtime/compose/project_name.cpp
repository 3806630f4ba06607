#include "platform/container_runtime/compose/project_name.h"

#include <openssl/sha.h>

namespace KxNContainer {

namespace {

void appendHex(std::string& text, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    text += digits[byte >> 4];
    text += digits[byte & 15];
}

std::string sha256(const std::string& text) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    ::SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    std::string hex;
    for (const unsigned char byte : digest) {
        appendHex(hex, byte);
    }
    return hex;
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
            appendHex(name, static_cast<unsigned char>(character));
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
