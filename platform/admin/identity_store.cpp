#include "platform/admin/identity_store.h"

#include <stdexcept>

#include "platform/common/atomic_file.h"
#include "platform/common/private_file.h"

namespace KxNAdmin {

using KxNJson::json;
using namespace KxNTamberWebApi;

namespace {

IdentitiesFile read(const std::string& path) {
    try {
        auto file = readIdentitiesFile(path);
        return file ? std::move(*file) : IdentitiesFile{{{"identities", json::array()}}, {}};
    } catch (const std::exception& failure) {
        throw std::runtime_error(std::string(failure.what()) + "; nothing was changed: mend the file, or move it away");
    }
}

}  // namespace

std::vector<Identity> IdentityStore::list() const {
    return read(path).identities;
}

void IdentityStore::change(const std::function<void(json& entries)>& change) const {
    const KxNCommon::UniqueFd lock = KxNCommon::lockDirectory(KxNCommon::makeDirectoryOf(path));
    IdentitiesFile file = read(path);
    change(file.document["identities"]);
    parseIdentities(file.document);  // what is written can be read
    const std::string text = file.document.dump(2) + "\n";
    if (text.size() > MAXIMUM_IDENTITIES_FILE) {
        throw std::runtime_error("'" + path + "' would become too large; remove identities that nobody uses");
    }
    std::string error;
    if (!KxNCommon::replaceFile(path, text, KxNCommon::PRIVATE_MODE, error)) {
        throw std::runtime_error(error + "; the identities are as they were");
    }
}

json* findEntry(json& entries, const std::string& name) {
    for (json& entry : entries) {
        if (entry["name"] == name) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace KxNAdmin
