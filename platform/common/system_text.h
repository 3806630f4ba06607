// The system's text for an error number, and the exception that carries it.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace KxNCommon {

/// What the C library says of `errorNumber`, a value of errno: errno(3). Any thread.
inline std::string systemText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

/// To be thrown: "WHAT: " and the system's text.
inline std::system_error systemError(const std::string& what, int errorNumber = errno) {
    return {errorNumber, std::generic_category(), what};
}

}  // namespace KxNCommon
