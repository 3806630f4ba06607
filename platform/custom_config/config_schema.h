// Every key that the custom configuration may hold.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace KxNConfigSchema {

enum class Kind {
    Number,   ///< decimal, from `lowest` to `highest`
    Choice,   ///< one of the words in `choices`, separated by '|'
    Address,  ///< an IPv4 or IPv6 address
    Path      ///< an absolute path
};

struct Key {
    const char* section;
    const char* name;
    const char* defaultText;
    const char* meaning;  ///< for the operator who edits the file
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

/// A configuration file that names every key with its default, commented out.
std::string renderDefaultFile();

}  // namespace KxNConfigSchema
