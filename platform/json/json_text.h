// Reading JSON texts that come from outside.
#pragma once

#include <cstddef>
#include <string_view>

#include "KxJsonFwd.h"

namespace KxNJson {

/// The limit for what is only passed on.
constexpr int MAXIMUM_DEPTH = 64;

/// Whether more than `limit` objects and arrays of the JSON text `text` are open at once. The limit is the caller's:
/// what it writes or takes in, well below what the steps after the parser can recurse through.
///
/// Goes through the text once, whatever is in it. (The parser's own callback could count, but with one the parser goes
/// through the list that it is in after each object: a text of many small objects would take minutes.)
///
/// Of a text that is not valid JSON only this holds: the parser finds its error before it is deeper than `limit`, or
/// the answer is true. Any thread.
bool nestsDeeperThan(std::string_view text, int limit);

/// Whether the objects of the JSON text `text` have more than `limit` members together. Any thread.
bool hasMoreMembersThan(std::string_view text, std::size_t limit);

/// Parses a text that is to nest at most `limit` levels deep, and to have at most 10 000 members (each is compared to
/// all before it in its object: a million bytes of short ones would take many seconds). Throws the parser's exception
/// or std::invalid_argument, whose words say what is wrong and where. Any thread.
json parseJsonText(std::string_view text, int limit);

}  // namespace KxNJson
