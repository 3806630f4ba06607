// Addresses that guess tokens.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace KxNTamberWebApi {

/// What addresses are told apart by: an IPv4 address, also one mapped into IPv6, or the /64 of an IPv6 address.
std::string originOf(const std::string& address);

/// Counts wrong tokens by origin. Any thread. Times are milliseconds of a clock that never jumps.
class WrongTokens {
public:
    /// A token from `address` was wrong.
    void note(const std::string& address, std::int64_t now);

    /// For how many seconds, 0 for none, who shows no right token is sent away: after ten wrong ones within a minute,
    /// until a minute has passed without one.
    int secondsToWait(const std::string& address, std::int64_t now) const;

private:
    static constexpr std::size_t ALLOWED = 10;

    struct Origin {
        std::string key;
        std::array<std::int64_t, ALLOWED> times{};  // of the last ones, in a ring
        std::size_t count = 0;
        bool isSlowed = false;

        std::int64_t last() const { return times[(count - 1) % ALLOWED]; }
    };

    // The one whose last wrong token is longest ago comes first, and goes first when there are too many.
    mutable std::mutex mutex;
    std::list<Origin> origins;
    std::unordered_map<std::string_view, std::list<Origin>::iterator> byKey;
};

}  // namespace KxNTamberWebApi
