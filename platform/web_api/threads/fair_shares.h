// What uploads share: a bounded amount of something, of which one identity gets half at most.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace KxNTamberWebApi {

/// Any thread.
class FairShares {
public:
    struct Request {
        std::string identity;
        std::size_t amount = 1;  ///< half of all at most
        std::size_t leaves = 0;  ///< what must stay free for others beside it
        /// Called once, with whether the share was given: at once, or when others have given enough back. From any
        /// thread that uses the object; may use it itself.
        std::function<void(bool isGiven)> decide;
    };

    /// A request waits for `longestToWait` at most.
    FairShares(std::size_t all, std::chrono::milliseconds longestToWait) : total(all), longestWait(longestToWait) {}
    FairShares(const FairShares&) = delete;
    FairShares& operator=(const FairShares&) = delete;

    void ask(Request request);
    void giveBack(const std::string& identity, std::size_t amount);

    /// Refuses what has waited for too long, the oldest first.
    void expire(std::int64_t now);
    /// Refuses what waits and what will be asked.
    void refuseAll();

private:
    struct Waiting {
        Request request;
        std::int64_t until;
    };
    using Waitings = std::list<Waiting>;

    bool fits(const Request& request) const;
    void take(const Request& request);
    static void decide(const Waitings& decided, bool isGiven);

    const std::size_t total;
    const std::chrono::milliseconds longestWait;
    std::mutex mutex;
    std::size_t taken = 0;
    std::map<std::string, std::size_t> takenBy;
    Waitings queue;  // the oldest first
    bool refuses = false;
};

/// What a request was given; goes back in the end. One thread at a time.
class FairShare {
public:
    FairShare() = default;
    FairShare(FairShares& shares, std::string identity, std::size_t amount)
        : from(&shares), holder(std::move(identity)), size(amount) {}
    FairShare(FairShare&& other) noexcept
        : from(std::exchange(other.from, nullptr)), holder(std::move(other.holder)), size(other.size) {}
    FairShare& operator=(FairShare&&) = delete;
    ~FairShare() { giveBack(); }

    void giveBack() {
        if (FairShares* const shares = std::exchange(from, nullptr)) {
            shares->giveBack(holder, size);
        }
    }

private:
    FairShares* from = nullptr;
    std::string holder;
    std::size_t size = 0;
};

}  // namespace KxNTamberWebApi
