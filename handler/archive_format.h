// Recognises the archives that Podman may be asked to load.
#pragma once

#include <istream>

namespace KxNCre {

/// At most one is true.
struct ArchiveFormat {
    bool gzip = false;
    bool bzip2 = false;
    bool xz = false;
    bool zstd = false;
    bool plainTar = false;

    bool isKnown() const { return gzip || bzip2 || xz || zstd || plainTar; }
};

/// Looks at the first bytes of `file`, and where they are no compressed format's at the place of a tar header's magic.
/// What a compressed file holds is not looked at. `path` is for the log only.
ArchiveFormat detectArchiveFormat(std::istream& file, const char* path);

}  // namespace KxNCre
