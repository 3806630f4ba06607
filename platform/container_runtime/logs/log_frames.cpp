#include "platform/container_runtime/logs/log_frames.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

namespace KxNContainer {

namespace {

bool isFrameHeader(const std::array<char, 8>& header) {
    // Input, output, errors, and the engine's own errors.
    return header[0] >= 0 && header[0] <= 3 && header[1] == 0 && header[2] == 0 && header[3] == 0;
}

std::uint32_t payloadLength(const std::array<char, 8>& header) {
    std::uint32_t length;
    std::memcpy(&length, header.data() + 4, sizeof length);
    return ::be32toh(length);
}

}  // namespace

/// Takes a header off the front of `bytes`, or what is there of it. True when it is complete.
bool LogFrames::takeHeader(std::string_view& bytes) {
    if (headerSize == 0 && bytes.size() >= header.size()) {
        std::memcpy(header.data(), bytes.data(), header.size());
        bytes.remove_prefix(header.size());
        return true;
    }
    const std::size_t taken = std::min(bytes.size(), header.size() - headerSize);
    std::copy_n(bytes.data(), taken, header.data() + headerSize);
    bytes.remove_prefix(taken);
    headerSize = (headerSize + taken) % header.size();
    return headerSize == 0;
}

std::optional<LogFrames::Piece> LogFrames::next(std::string_view& bytes) {
    while (!bytes.empty() && remaining == 0 && !broken) {
        if (!takeHeader(bytes)) {
            return std::nullopt;
        }
        if (!isFrameHeader(header)) {
            broken = true;
            return Piece{1, {header.data(), header.size()}};
        }
        stream = static_cast<std::uint8_t>(header[0]);
        remaining = payloadLength(header);
    }
    if (bytes.empty()) {
        return std::nullopt;
    }
    const std::size_t size = broken ? bytes.size() : std::min<std::size_t>(bytes.size(), remaining);
    const Piece piece{broken ? std::uint8_t{1} : stream, bytes.substr(0, size)};
    remaining -= broken ? 0 : static_cast<std::uint32_t>(size);
    bytes.remove_prefix(size);
    return piece;
}

void LogText::append(std::string_view bytes, std::string& text) {
    if (!framed) {
        output.append(bytes, text);
        return;
    }
    while (const auto piece = frames.next(bytes)) {
        (piece->stream == 1 ? output : errors).append(piece->payload, text);
    }
}

void LogText::finish(std::string& text) {
    output.finish(text);
    errors.finish(text);
}

}  // namespace KxNContainer
