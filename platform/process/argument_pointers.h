// Texts in the form that execve(2) takes arguments and environments.
#pragma once

#include <string>
#include <vector>

namespace KxNContainer {

/// Pointers into `texts`, ended by a null pointer. Valid as long as `texts` is not changed.
inline std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace KxNContainer
