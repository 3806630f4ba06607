// Reading JSON texts that come from outside.
#pragma once

#include <string>
#include <string_view>

#include "KxJsonFwd.h"

namespace KxNJson {

/// The limit for what is only passed on.
constexpr int MAXIMUM_DEPTH = 64;

/// Parses a text that is to have at most `limit` objects and arrays open at once. The limit is the caller's: what it
/// writes or takes in, well below what the steps after the parser can recurse through. Time and memory grow with the
/// length of the text, whatever is in it. Throws the parser's exception or std::invalid_argument, whose words say what
/// is wrong and where. Any thread.
json parseJsonText(std::string_view text, int limit);

/// The text of `value` without spaces: to the byte what the library writes where it replaces what is not UTF-8, in a
/// fifth of the time for the texts that an answer mostly consists of, because those are copied and not decoded. Throws
/// nothing but std::bad_alloc. Any thread.
std::string makeJsonText(const json& value);

/// Makes an object whose members were put in without looking at each other what a parser makes of it: of those with
/// one name the value of the last stays, in the place of the first. Sorts instead of comparing each with all, and
/// rather than hashing names that somebody else has chosen.
void dropRepeatedNames(json& object);

}  // namespace KxNJson
