// A cursor that is taken is one that could have been given, and stands for one place.

#include "fuzz/require.h"
#include "platform/container_runtime/logs/file/file_cursor.h"
#include "platform/container_runtime/logs/log_cursor.h"

using namespace KxNContainer;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto cursor = LogCursor::parse(text);
    if (!cursor) {
        return 0;
    }
    KX_REQUIRE(size <= 500 && !hasControl(text));
    for (const std::string& bytes : cursor->incomplete) {
        KX_REQUIRE(bytes.size() <= 3);
    }
    const auto again = LogCursor::parse(cursor->format());
    KX_REQUIRE(again && again->kind == cursor->kind && again->incomplete == cursor->incomplete &&
               again->place == cursor->place);
    if (const auto place = FileCursor::parse(cursor->place)) {
        const auto samePlace = FileCursor::parse(place->format());
        KX_REQUIRE(place->offset >= 0 && samePlace && samePlace->inode == place->inode &&
                   samePlace->offset == place->offset && samePlace->hash == place->hash);
    }
    return 0;
}
