// Refusals are told one by one only as long as they are few.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace KxNTamberWebApi {

/// Any thread. Times are milliseconds of a clock that never jumps.
class RefusalSummary {
public:
    /// Whether a refusal of `address` is told by itself: ten of one address are, then the others until a second is over
    /// are only counted. Where it goes on, the time for which they are summed up doubles, up to a minute: nobody gets
    /// the record of others out of its bounded file that way.
    bool isToldAlone(const std::string& address, int status, std::int64_t now);

    struct Sum {
        std::string address;  ///< or the /64 that it is in; "others" for those beyond a number of addresses
        int status;           ///< of the last of them
        std::uint64_t refusals;
    };

    /// What was only counted and is now to be told together.
    std::vector<Sum> takeDue(std::int64_t now);

private:
    struct Window {
        std::int64_t begin;
        std::int64_t length;
        std::uint64_t alone = 0;
        std::uint64_t counted = 0;
        int status = 0;
    };

    std::mutex mutex;
    std::unordered_map<std::string, Window> windows;
};

}  // namespace KxNTamberWebApi
