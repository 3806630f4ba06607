// A cursor that is taken is one that could have been given, and stands for one place.

#include <fcntl.h>

#include "fuzz/require.h"
#include "fuzz/scratch_directory.h"
#include "platform/container_runtime/logs/file/file_cursor.h"
#include "platform/container_runtime/logs/log_cursor.h"

using namespace KxNContainer;

/// A place that a client names is in a file only if what is before it is what was there.
static void lookFor(FileCursor place, const std::string& content) {
    static const ScratchDirectory directory;
    directory.write("log", content);
    LogFile file(KxNCommon::UniqueFd(::open(directory.path("log").c_str(), O_RDONLY | O_CLOEXEC)));
    place.inode = file.getInode();
    place.isIn(file);
    place.offset = std::min(place.offset, static_cast<off_t>(content.size()));
    FileCursor own = FileCursor::at(file, place.offset);
    KX_REQUIRE(own.isIn(file) && place.isIn(file) == (own.hash == place.hash));
    ++own.inode;
    KX_REQUIRE(!own.isIn(file));
}

void fuzz(std::string_view text) {
    const auto cursor = LogCursor::parse(text);
    if (!cursor) {
        return;
    }
    KX_REQUIRE(text.size() <= 500 && !hasControl(text));
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
        lookFor(*place, std::string(text));
    }
}
