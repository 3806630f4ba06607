// The images that there are, by the lists of Podman.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "KxContainer.h"
#include "KxJsonFwd.h"

namespace KxNContainer {

/// Podman's image events name archives, and tell nothing of what they held; so an event only says that the list is to
/// be looked at again. One thread at a time.
class KnownImages {
public:
    /// Takes the list of images, an array of {"Id", "RepoTags"}. Appends what became of each name, or of the id of an
    /// image without one: "add", "tag", "untag" or "remove". The first list gives nothing.
    void takeList(const KxNJson::json& list, std::int64_t utcMilliseconds, std::vector<KxSChange>& changes);

private:
    std::map<std::string, std::string> idByName;
    bool hasList = false;
};

}  // namespace KxNContainer
