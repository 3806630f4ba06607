// The containers that there are, as far as Podman's events and lists have told.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KxContainer.h"
#include "KxJsonFwd.h"

namespace KxNContainer {

/// Decides what each event and each list mean for who follows the changes. An event says what happened, a list what is:
/// where events were missed, the difference between the two makes up for them, and what a list has told already is not
/// told again by a late event. One thread at a time.
class KnownContainers {
public:
    /// Takes one of Podman's container events. Appends the change that it is, if it is news.
    void takeEvent(const KxNJson::json& event, std::int64_t utcMilliseconds, std::vector<KxSChange>& changes);

    /// Takes the list of all containers, an array of {"Id", "Names", "State"}, that was asked for at `utcMilliseconds`.
    /// Appends the changes that make what was known what is; the first list gives none.
    void takeList(const KxNJson::json& list, std::int64_t utcMilliseconds, std::vector<KxSChange>& changes);

    std::vector<KxSKnownContainer> all() const;
    bool hasList() const { return wasListed; }

private:
    /// The first 16 characters of an id, which is a random number: there may be ten thousand containers.
    using Id = std::array<char, 16>;
    struct IdHash {
        std::size_t operator()(const Id& id) const;
    };
    struct Known {
        std::string name;
        const char* state = "";  ///< one of `states`
        std::uint32_t starts = 0;
        bool isListed = false;  ///< by the list that is gone through
    };

    const char* keep(std::string_view state);
    bool isNamed(const std::string& name) const;

    std::unordered_map<Id, Known, IdHash> containers;
    std::set<std::string, std::less<>> states;
    bool wasListed = false;
    std::int64_t listTime = 0;
};

}  // namespace KxNContainer
