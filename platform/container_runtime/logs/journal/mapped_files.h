// Files that are read through a mapping of memory and may be cut short meanwhile.
#pragma once

namespace KxNContainer {

/// While one exists on a thread, pages of a mapped file that are gone read as zeros there. Otherwise the kernel ends
/// the process with SIGBUS: journald takes the blocks of files that it vacuums away from those who still read them. Its
/// library, which maps them, takes zeros for a damaged file and says so. Not to be nested.
class VanishingPages {
public:
    VanishingPages();
    ~VanishingPages();
    VanishingPages(const VanishingPages&) = delete;
    VanishingPages& operator=(const VanishingPages&) = delete;
};

}  // namespace KxNContainer
