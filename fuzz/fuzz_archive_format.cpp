// Whatever an uploaded file holds, at most one format is found, and only where its magic stands.
#include <sstream>

#include "fuzz/require.h"
#include "handler/archive_format.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    std::istringstream file(content);
    const KxNCre::ArchiveFormat format = KxNCre::detectArchiveFormat(file, "uploaded");

    const int found = format.gzip + format.bzip2 + format.xz + format.zstd + format.plainTar;
    KX_REQUIRE(found <= 1 && format.isKnown() == (found == 1));
    KX_REQUIRE(format.gzip == content.starts_with("\x1F\x8B") && format.bzip2 == content.starts_with("BZh"));
    KX_REQUIRE((!format.xz || size >= 6) && (!format.zstd || data[3] == 0xFD));
    const bool hasTarMagic = size >= 262 && content.compare(257, 5, "ustar") == 0;
    KX_REQUIRE(format.plainTar == (hasTarMagic && found - format.plainTar == 0));
    return 0;
}
