// Changes of the identities file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/web_api/identities/identity.h"

namespace KxNAdmin {

/// The file at one path. Failures are std::exceptions whose text names the file and a way out. Any thread.
class IdentityStore {
public:
    explicit IdentityStore(std::string filePath) : path(std::move(filePath)) {}

    /// Who is in the file; nobody where there is none.
    std::vector<KxNTamberWebApi::Identity> list() const;

    /// Lets `change` change the entries, and writes the file, members that nobody here knows included. Two at once go
    /// one after the other; a failure or a power cut leaves the file as it was.
    void change(const std::function<void(KxNJson::json& entries)>& change) const;

private:
    const std::string path;
};

/// The entry of that name; null when there is none.
KxNJson::json* findEntry(KxNJson::json& entries, const std::string& name);

}  // namespace KxNAdmin
