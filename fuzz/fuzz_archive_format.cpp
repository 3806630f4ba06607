// Whatever an uploaded file holds, at most one format is found, and only where its magic stands.
#include <sstream>

#include "fuzz/require.h"
#include "handler/archive_format.h"

using namespace std::string_view_literals;

void fuzz(std::string_view input) {
    std::istringstream file{std::string(input)};
    const KxNCre::ArchiveFormat format = KxNCre::detectArchiveFormat(file, "uploaded");

    const int found = format.gzip + format.bzip2 + format.xz + format.zstd + format.plainTar;
    KX_REQUIRE(found <= 1 && format.isKnown() == (found == 1));
    KX_REQUIRE(format.gzip == input.starts_with("\x1F\x8B") && format.bzip2 == input.starts_with("BZh"));
    KX_REQUIRE(format.xz == input.starts_with("\xFD\x37zXZ\0"sv) &&
               format.zstd == input.starts_with("\x28\xB5\x2F\xFD"));
    const bool hasTarMagic = input.size() >= 262 && input.compare(257, 5, "ustar") == 0;
    KX_REQUIRE(format.plainTar == (hasTarMagic && found - format.plainTar == 0));
}
