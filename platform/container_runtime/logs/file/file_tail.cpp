#include "platform/container_runtime/logs/file/file_tail.h"

#include <algorithm>
#include <cstring>

namespace KxNContainer {

namespace {

constexpr off_t TAIL_BLOCK_SIZE = 32L << 10;

}  // namespace

BackwardEntries::BackwardEntries(const LogFile& readFile, off_t end)
    : file(readFile), lineEnd(end), blockBegin(end), head(EntryHead::MAX_SIZE) {}

std::optional<BackwardEntries::Entry> BackwardEntries::next() {
    const auto begin = findLineBegin();
    if (!begin) {
        return std::nullopt;
    }
    lineEnd = *begin;
    return Entry{*begin, parseEntryHead(headAt(*begin))};
}

/// Where the line that ends at `lineEnd` begins: behind the newline before its own.
std::optional<off_t> BackwardEntries::findLineBegin() {
    for (off_t searched = lineEnd - 1; lineEnd > 0;) {
        if (searched > blockBegin) {
            const auto size = static_cast<std::size_t>(searched - blockBegin);
            if (const void* const found = ::memrchr(block.data(), '\n', size)) {
                return blockBegin + (static_cast<const char*>(found) - block.data()) + 1;
            }
        }
        if (blockBegin == 0) {
            return 0;
        }
        searched = std::min(searched, blockBegin);
        const off_t size = std::min(TAIL_BLOCK_SIZE, blockBegin);
        blockBegin -= size;
        block.resize(static_cast<std::size_t>(size));
        block.resize(file.read(blockBegin, block));
        if (block.size() != static_cast<std::size_t>(size)) {
            return std::nullopt;  // somebody has cut it short
        }
    }
    return std::nullopt;
}

std::string_view BackwardEntries::headAt(off_t offset) {
    const auto place = static_cast<std::size_t>(offset - blockBegin);
    if (place + head.size() <= block.size()) {
        return {block.data() + place, head.size()};
    }
    return {head.data(), file.read(offset, head)};
}

}  // namespace KxNContainer
