// Whatever stands in a log file and however it is read, the same text comes out, valid, and not more than three bytes
// for one.

#include "fuzz/require.h"
#include "platform/container_runtime/logs/entry_text.h"
#include "platform/container_runtime/logs/file/entry_parser.h"

using namespace KxNContainer;

/// As a reader with a block of `room` bytes that gets `step` of them at a time.
static std::string read(std::string_view bytes, std::size_t step, std::size_t room) {
    EntryParser parser;
    EntryText entries(false);
    std::string text;
    std::string block;
    while (!bytes.empty() || !block.empty()) {
        const std::size_t size = std::min({step, room - block.size(), bytes.size()});
        block.append(bytes.substr(0, size));
        bytes.remove_prefix(size);
        std::string_view rest(block);
        while (true) {
            const bool isHole = parser.skipHole(rest) > 0;
            const auto entry = parser.next(rest, bytes.empty() || rest.size() == room);
            if (entry) {
                entries.append(*entry, text);
            } else if (!isHole) {
                break;
            }
        }
        block.erase(0, block.size() - rest.size());
        KX_REQUIRE(!bytes.empty() || block.empty());
    }
    entries.finish(text);
    return text;
}

/// The first byte says into how large pieces the rest is cut.
void fuzz(std::string_view input) {
    if (input.empty()) {
        return;
    }
    const std::string_view bytes = input.substr(1);
    const std::string whole = read(bytes, input.size(), input.size());
    KX_REQUIRE(KxNCommon::toUtf8(whole) == whole && whole.size() <= 3 * bytes.size());
    KX_REQUIRE(read(bytes, 1 + byteAt(input, 0), input.size()) == whole);
    KX_REQUIRE(read(bytes, 1 + byteAt(input, 0), 4 * EntryHead::MAX_SIZE) == whole);
}
