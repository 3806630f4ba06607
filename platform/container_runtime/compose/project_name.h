// The compose project of a compose file.
#pragma once

#include <string>

namespace KxNContainer {

/// The name under which docker-compose keeps the containers and networks of the compose file `fileName`. Different file
/// names have different projects, and no project that somebody else named begins like them.
std::string projectName(const std::string& fileName);

}  // namespace KxNContainer
