// Checks that operations make on their parameters.
#pragma once

namespace KxNCre {

inline bool isMissing(const char* text) {
    return text == nullptr || *text == '\0';
}

inline bool isSetTo(const bool* flag, bool value) {
    return flag != nullptr && *flag == value;
}

}  // namespace KxNCre
