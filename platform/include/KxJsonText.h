// Reading JSON texts that come from outside.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "KxJsonFwd.h"

namespace KxNJson {

/// Parses `text` into `value`. False when it is not JSON, holds a null byte, nests more than 64 levels deep or has more
/// than 10 000 members; `reason` then says which, and `value` is as before. Any thread.
bool parse(std::string_view text, json& value, std::string& reason);

/// Reduces the records of the JSON text `list` without building the rest of them: `selection` becomes an array with one
/// object per record, in their order, that holds those of `keys` that the record holds, in the order of `keys`, values
/// unchanged. `null`, which Podman may write for an empty list, counts as one.
/// False when `list` is not JSON, not an array, holds anything but objects or nests more than 64 levels deep; `reason`
/// then says which, and `selection` means nothing. Any thread.
bool selectKeys(std::string_view list, std::span<const char* const> keys, json& selection, std::string& reason);

}  // namespace KxNJson
