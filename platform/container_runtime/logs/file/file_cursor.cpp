#include "platform/container_runtime/logs/file/file_cursor.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace KxNContainer {

namespace {

constexpr off_t HASHED_SIZE = 128;

/// FNV-1a: nobody gains by two places with the same one.
std::uint64_t addToHash(std::uint64_t hash, std::string_view bytes) {
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    return hash;
}

std::uint64_t hashBefore(const LogFile& file, off_t offset) {
    std::array<char, HASHED_SIZE> bytes{};
    const off_t size = std::min(offset, HASHED_SIZE);
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const off_t begin : {off_t{0}, offset - size}) {
        hash = addToHash(hash, {bytes.data(), file.read(begin, {bytes.data(), static_cast<std::size_t>(size)})});
    }
    return hash;
}

template <class Number>
bool takeHex(std::string_view& text, Number& number) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    number = static_cast<Number>(value);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc() && value <= static_cast<std::uint64_t>(std::numeric_limits<Number>::max());
}

bool takeDash(std::string_view& text) {
    const bool isThere = text.starts_with('-');
    text.remove_prefix(isThere ? 1 : 0);
    return isThere;
}

std::string hex(std::uint64_t number) {
    std::array<char, 16> digits{};
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr};
}

}  // namespace

FileCursor FileCursor::at(const LogFile& file, off_t offset) {
    return {file.getInode(), offset, hashBefore(file, offset)};
}

std::optional<FileCursor> FileCursor::parse(std::string_view text) {
    FileCursor cursor;
    if (takeHex(text, cursor.inode) && takeDash(text) && takeHex(text, cursor.offset) && takeDash(text) &&
        takeHex(text, cursor.hash) && text.empty()) {
        return cursor;
    }
    return std::nullopt;
}

std::string FileCursor::format() const {
    return hex(inode) + "-" + hex(static_cast<std::uint64_t>(offset)) + "-" + hex(hash);
}

bool FileCursor::isIn(LogFile& file) const {
    return file.getInode() == inode && file.look().size >= offset && hashBefore(file, offset) == hash;
}

}  // namespace KxNContainer
