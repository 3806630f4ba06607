// The directories that the container service works in.
#pragma once

namespace KxNContainer {

/// Makes those that are missing. One that cannot be made is a level-4 log line: what needs it says so again, and all
/// else goes on.
void makeRuntimeDirectories();

}  // namespace KxNContainer
