// The page, as it lies in the executable.
#pragma once

#include <span>

#include "platform/web_api/routing/static_files.h"

namespace KxNConsole {

/// The files of platform/console/page/.
std::span<const KxNTamberWebApi::StaticFile> pageFiles();

}  // namespace KxNConsole
