// The room on the device.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/console/call.h"

namespace KxNConsole {

struct Volume {
    const char* what;  ///< for people; "uploads" is the one that uploaded files go through
    const char* path;
    std::uint64_t freeBytes;  ///< for everybody but the superuser
    std::uint64_t totalBytes;
};

/// The volumes that the service stores on, those that can be read.
std::vector<Volume> readVolumes();

/// GET /storage
void getStorage(const Call& call);

}  // namespace KxNConsole
