#include "platform/web_api/threads/fair_shares.h"

#include <utility>

#include "platform/net/deadline.h"

namespace KxNTamberWebApi {

void FairShares::ask(Request request) {
    std::unique_lock lock(mutex);
    const bool isGiven = !refuses && fits(request);
    if (isGiven) {
        take(request);
    } else if (!refuses) {
        queue.push_back({std::move(request), KxNNet::coarseMilliseconds() + longestWait.count()});
        return;
    }
    lock.unlock();
    request.decide(isGiven);
}

bool FairShares::fits(const Request& request) const {
    const auto own = takenBy.find(request.identity);
    const std::size_t held = own != takenBy.end() ? own->second : 0;
    return taken + request.amount + request.leaves <= total && held + request.amount <= (total + 1) / 2;
}

void FairShares::take(const Request& request) {
    taken += request.amount;
    takenBy[request.identity] += request.amount;
}

void FairShares::giveBack(const std::string& identity, std::size_t amount) {
    Waitings given;
    {
        std::lock_guard lock(mutex);
        taken -= amount;
        const auto own = takenBy.find(identity);
        own->second -= amount;
        if (own->second == 0) {
            takenBy.erase(own);
        }
        // Who waits only for its own identity's share, or asks for much, does not hold up those behind it.
        for (auto one = queue.begin(); one != queue.end();) {
            const auto next = std::next(one);
            if (fits(one->request)) {
                take(one->request);
                given.splice(given.end(), queue, one);
            }
            one = next;
        }
    }
    decide(given, true);
}

void FairShares::expire(std::int64_t now) {
    Waitings late;
    {
        std::lock_guard lock(mutex);
        while (!queue.empty() && queue.front().until <= now) {
            late.splice(late.end(), queue, queue.begin());
        }
    }
    decide(late, false);
}

void FairShares::refuseAll() {
    Waitings refused;
    {
        std::lock_guard lock(mutex);
        refuses = true;
        refused.swap(queue);
    }
    decide(refused, false);
}

void FairShares::decide(const Waitings& decided, bool isGiven) {
    for (const Waiting& one : decided) {
        one.request.decide(isGiven);
    }
}

}  // namespace KxNTamberWebApi
