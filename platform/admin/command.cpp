#include "platform/admin/command.h"

#include <algorithm>
#include <iterator>

namespace KxNAdmin {

std::string takeOption(Words& words, const std::string& option) {
    std::string value;
    for (auto word = words.begin(); word != words.end();) {
        const bool isJoined = word->starts_with(option + "=");
        if (*word != option && !isJoined) {
            ++word;
            continue;
        }
        if (!value.empty() || (!isJoined && std::next(word) == words.end())) {
            throw UsageError(option + (value.empty() ? " needs a value" : " is given twice"));
        }
        value = isJoined ? word->substr(option.size() + 1) : *std::next(word);
        if (value.empty()) {
            throw UsageError(option + " needs a value");
        }
        word = words.erase(word, std::next(word, isJoined ? 1 : 2));
    }
    return value;
}

bool takeFlag(Words& words, const std::string& option) {
    return std::erase(words, option) > 0;
}

std::string takeOnlyName(const Words& words) {
    const auto option = std::ranges::find_if(words, [](const std::string& word) { return word.starts_with("--"); });
    if (option != words.end()) {
        throw UsageError("there is no option '" + *option + "'");
    }
    if (words.size() != 1) {
        throw UsageError(words.empty() ? "the NAME is missing" : "'" + words[1] + "' is too much");
    }
    return words.front();
}

}  // namespace KxNAdmin
