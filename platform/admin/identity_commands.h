// kx-container-admin identity …
#pragma once

#include <iosfwd>
#include <string>

#include "platform/admin/command.h"

namespace KxNAdmin {

/// Where the commands write: a token or a table to `out`, what was done besides to `told`.
struct Output {
    std::ostream& out;
    std::ostream& told;
};

/// Each works on the identities file at `path`. Throws UsageError, or another std::exception with a way out in its
/// text.
void addIdentity(const std::string& path, Words words, const Output& output);
void listIdentities(const std::string& path, Words words, const Output& output);
void removeIdentity(const std::string& path, const Words& words, const Output& output);
void renewIdentity(const std::string& path, Words words, const Output& output);

}  // namespace KxNAdmin
