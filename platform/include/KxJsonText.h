// Reading JSON texts that come from outside.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "KxJsonFwd.h"

namespace KxNJson {

/// Parses `text` into `value`. False when it is not JSON, holds a null byte or nests more than 64 levels deep; `reason`
/// then says which, and `value` is as before. Time and memory grow with the length of the text, which is the caller's
/// to bound. Any thread.
bool parse(std::string_view text, json& value, std::string& reason);

/// Reduces the records of the JSON text `list` without building the rest of them: `selection` becomes an array with one
/// object per element, in their order, that holds those of `keys` that the element holds, in the order of `keys`,
/// values unchanged. An element that is no object holds none. The elements of an object are the values of its members,
/// `null` (which Podman may write for an empty list) has none, and any other value is its own only element. False when
/// `list` is not JSON or nests more than 64 levels deep; `reason` then says which, and `selection` means nothing. Any
/// thread.
bool selectKeys(std::string_view list, std::span<const char* const> keys, json& selection, std::string& reason);

}  // namespace KxNJson
