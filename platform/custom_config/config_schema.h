// Every key that the custom configuration may hold.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace KxNConfigSchema {

enum class Kind {
    Number,        ///< decimal, from `lowest` to `highest`
    Choice,        ///< one of the two words in `choices`, which are separated by " or "
    Address,       ///< an IPv4 or IPv6 address
    Path,          ///< an absolute path
    PathOrNothing  ///< the same, or empty
};

struct Key {
    const char* section;
    const char* name;
    const char* defaultText;
    Kind kind;
    std::int64_t lowest = 0;
    std::int64_t highest = 0;
    const char* choices = nullptr;
    /// A bad value switches off only what the key itself configures; its section stays usable.
    bool isOptionalFeature = false;
};

/// All keys, those of one section together, in the order in which a person reads them.
std::span<const Key> getKeys();

const Key* findKey(std::string_view section, std::string_view name);
bool isKnownSection(std::string_view section);

/// What a value of `key` has to be, in words that end a sentence: "a number from 0 to 6".
std::string describeValues(const Key& key);

bool isValid(const Key& key, std::string_view value);

}  // namespace KxNConfigSchema
