#include "platform/json/json_text.h"

#include <cstddef>
#include <stdexcept>
#include <string>

#include "KxJson.h"
#include "KxJsonText.h"

namespace KxNJson {

namespace {

constexpr std::size_t MAXIMUM_MEMBERS = 10'000;

/// Whether `isFound` says so of a character of `text` that is not in a string.
template <typename Predicate>
bool findOutsideStrings(std::string_view text, Predicate isFound) {
    bool isInString = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char character = text[at];
        if (isInString) {
            at += character == '\\' ? 1 : 0;
            isInString = character != '"';
        } else if (character == '"') {
            isInString = true;
        } else if (isFound(character)) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool nestsDeeperThan(std::string_view text, int limit) {
    int depth = 0;
    return findOutsideStrings(text, [&](char character) {
        depth -= character == ']' || character == '}' ? 1 : 0;
        return (character == '[' || character == '{') && ++depth > limit;
    });
}

bool hasMoreMembersThan(std::string_view text, std::size_t limit) {
    std::size_t members = 0;
    return findOutsideStrings(text, [&](char character) { return character == ':' && ++members > limit; });
}

json parseJsonText(std::string_view text, int limit) {
    if (nestsDeeperThan(text, limit)) {
        throw std::invalid_argument("it nests more than " + std::to_string(limit) + " levels deep");
    }
    if (hasMoreMembersThan(text, MAXIMUM_MEMBERS)) {
        throw std::invalid_argument("it has more than " + std::to_string(MAXIMUM_MEMBERS) + " members");
    }
    if (const std::size_t at = text.find('\0');
        at != std::string_view::npos) {  // the parser would end there, and be content
        throw std::invalid_argument("there is a null byte at position " + std::to_string(at));
    }
    return json::parse(text);
}

bool parse(std::string_view text, json& value, std::string& reason) {
    try {
        value = parseJsonText(text, MAXIMUM_DEPTH);
        return true;
    } catch (const json::exception& failure) {
        reason = failure.what();
    } catch (const std::invalid_argument& failure) {
        reason = failure.what();
    }
    return false;
}

}  // namespace KxNJson
