// The CPUs that containers may get.
#pragma once

#include <cstdint>

namespace KxNContainer {

/// Number of CPUs that this process might run on when it was first asked; at least 1. Any thread. Every read of the
/// settings asks, so the kernel is not asked each time.
std::uint32_t countAllowedCpus();

}  // namespace KxNContainer
