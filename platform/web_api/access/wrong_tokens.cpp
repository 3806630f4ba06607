#include "platform/web_api/access/wrong_tokens.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <iterator>
#include <utility>

namespace KxNTamberWebApi {

namespace {

constexpr std::int64_t MINUTE = 60'000;
constexpr std::size_t MAXIMUM_ORIGINS = 4096;

}  // namespace

std::string originOf(const std::string& address) {
    in6_addr v6{};
    if (::inet_pton(AF_INET6, address.c_str(), &v6) != 1) {
        return address;
    }
    char text[INET6_ADDRSTRLEN] = "";
    if (IN6_IS_ADDR_V4MAPPED(&v6)) {
        ::inet_ntop(AF_INET, &v6.s6_addr[12], text, sizeof text);
        return text;
    }
    for (int i = 8; i < 16; ++i) {
        v6.s6_addr[i] = 0;
    }
    ::inet_ntop(AF_INET6, &v6, text, sizeof text);
    return std::string(text) + "/64";
}

void WrongTokens::note(const std::string& address, std::int64_t now) {
    std::string key = originOf(address);
    const std::lock_guard lock(mutex);
    auto found = byKey.find(key);
    if (found == byKey.end()) {
        if (origins.size() >= MAXIMUM_ORIGINS) {
            byKey.erase(origins.front().key);
            origins.pop_front();
        }
        origins.emplace_back().key = std::move(key);
        found = byKey.emplace(origins.back().key, std::prev(origins.end())).first;
    }
    const auto origin = found->second;
    if (origin->count > 0 && now - origin->last() >= MINUTE) {
        origin->count = 0;
        origin->isSlowed = false;
    }
    origin->times[origin->count % ALLOWED] = now;
    ++origin->count;
    // The oldest of the last ten is the one that the next takes the place of.
    origin->isSlowed |= origin->count >= ALLOWED && now - origin->times[origin->count % ALLOWED] < MINUTE;
    origins.splice(origins.end(), origins, origin);
}

int WrongTokens::secondsToWait(const std::string& address, std::int64_t now) const {
    const std::lock_guard lock(mutex);
    if (byKey.empty()) {
        return 0;
    }
    const auto found = byKey.find(originOf(address));
    if (found == byKey.end() || !found->second->isSlowed) {
        return 0;
    }
    const std::int64_t left = found->second->last() + MINUTE - now;
    return left > 0 ? static_cast<int>((left + 999) / 1000) : 0;
}

}  // namespace KxNTamberWebApi
