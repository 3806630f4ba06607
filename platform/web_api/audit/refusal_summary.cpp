#include "platform/web_api/audit/refusal_summary.h"

#include <algorithm>
#include <utility>

#include "platform/web_api/access/wrong_tokens.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::uint64_t TOLD_ALONE = 10;
constexpr std::int64_t SHORTEST = 1'000;
constexpr std::int64_t LONGEST = 60'000;
constexpr std::size_t MAXIMUM_ADDRESSES = 1024;
constexpr const char* OTHERS = "others";

}  // namespace

bool RefusalSummary::isToldAlone(const std::string& address, int status, std::int64_t now) {
    std::string key = originOf(address);
    const std::lock_guard lock(mutex);
    auto found = windows.find(key);
    if (found == windows.end()) {
        found = windows.try_emplace(windows.size() < MAXIMUM_ADDRESSES ? std::move(key) : OTHERS, Window{now, SHORTEST})
                    .first;
    }
    Window& window = found->second;
    if (window.alone < TOLD_ALONE) {
        ++window.alone;
        return true;
    }
    ++window.counted;
    window.status = status;
    return false;
}

std::vector<RefusalSummary::Sum> RefusalSummary::takeDue(std::int64_t now) {
    std::vector<Sum> due;
    const std::lock_guard lock(mutex);
    for (auto entry = windows.begin(); entry != windows.end();) {
        auto& [address, window] = *entry;
        const bool isOver = now - window.begin >= window.length;
        if (isOver && window.counted == 0) {
            entry = windows.erase(entry);
            continue;
        }
        if (isOver) {
            due.push_back({address, window.status, window.counted});
            window = {now, std::min(2 * window.length, LONGEST)};
        }
        ++entry;
    }
    return due;
}

}  // namespace KxNTamberWebApi
