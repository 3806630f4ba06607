#include "handler/archive_format.h"

#include <array>
#include <string_view>

#include "KxLog.h"

using namespace std::string_view_literals;

namespace KxNCre {

namespace {

constexpr std::string_view GZIP_MAGIC = "\x1F\x8B"sv;
constexpr std::string_view BZIP2_MAGIC = "BZh"sv;
constexpr std::string_view XZ_MAGIC = "\xFD\x37\x7A\x58\x5A\x00"sv;
constexpr std::string_view ZSTD_MAGIC = "\x28\xB5\x2F\xFD"sv;

/// Begins the magic field of POSIX and of old GNU headers alike.
constexpr std::string_view TAR_MAGIC = "ustar"sv;
constexpr std::streamoff TAR_MAGIC_OFFSET = 257;

bool hasTarMagic(std::istream& file) {
    std::array<char, TAR_MAGIC.size()> magic{};
    file.clear();
    file.seekg(TAR_MAGIC_OFFSET, std::ios::beg);
    file.read(magic.data(), magic.size());
    return file.good() && std::string_view(magic.data(), magic.size()) == TAR_MAGIC;
}

const char* yesOrNo(bool value) {
    return value ? "yes" : "no";
}

}  // namespace

ArchiveFormat detectArchiveFormat(std::istream& file, const char* path) {
    std::array<char, XZ_MAGIC.size()> buffer{};
    file.read(buffer.data(), buffer.size());
    const std::string_view start(buffer.data(), static_cast<std::size_t>(file.gcount()));

    ArchiveFormat format;
    if (start.starts_with(GZIP_MAGIC)) {
        format.gzip = true;
    } else if (start.starts_with(BZIP2_MAGIC)) {
        format.bzip2 = true;
    } else if (start.starts_with(XZ_MAGIC)) {
        format.xz = true;
    } else if (start.starts_with(ZSTD_MAGIC)) {
        format.zstd = true;
    } else {
        format.plainTar = hasTarMagic(file);
    }
    KxCRTE_LOG(1,
               "Korvex Container Service: Detected archive format for '%s': gzip=%s, bzip2=%s, xz=%s, zstd=%s, "
               "plainTar=%s",
               path, yesOrNo(format.gzip), yesOrNo(format.bzip2), yesOrNo(format.xz), yesOrNo(format.zstd),
               yesOrNo(format.plainTar));
    return format;
}

}  // namespace KxNCre
