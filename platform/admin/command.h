// What the commands of the tool have in common.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace KxNAdmin {

/// The words behind the command: names, and options that start with "--".
using Words = std::vector<std::string>;

/// The words were not what the command takes: told with the command's usage.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Takes the value of an option such as "--role" out of `words`, which may also be written "--role=viewer". Empty where
/// it is not given. Throws UsageError when it is given twice or without a value.
std::string takeOption(Words& words, const std::string& option);

/// Takes an option without a value out of `words`; whether it was there.
bool takeFlag(Words& words, const std::string& option);

/// Throws UsageError unless the words that are left are exactly one, and no option.
std::string takeOnlyName(const Words& words);

}  // namespace KxNAdmin
