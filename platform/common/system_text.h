// The system's text for an error number.
#pragma once

#include <string>
#include <system_error>

namespace KxNCommon {

/// What the C library says of `errorNumber`, a value of errno: errno(3). Any thread.
inline std::string systemText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

}  // namespace KxNCommon
