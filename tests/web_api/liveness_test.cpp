#include "platform/web_api/websocket/liveness.h"

#include "tests/support.h"

namespace KxNWebApiTest {

using namespace KxNTests;
using KxNTamberWebApi::Limits;
using KxNTamberWebApi::Liveness;

constexpr auto LIVES = Liveness::Verdict::lives;
constexpr auto PING = Liveness::Verdict::mustBePinged;
constexpr auto LOST = Liveness::Verdict::isLost;

/// With the server's own limits: a ping after 20 s, its pong within 20 s, 60 s without a byte taken.
TEST(Liveness, OfAClient) {
    struct Sweep {
        std::int64_t at;         ///< milliseconds
        std::uint64_t received;  ///< bytes up to now, as the next two
        std::uint64_t acknowledged;
        std::uint64_t waiting;
        Liveness::Facts facts;
        Liveness::Verdict verdict;
    };
    constexpr Liveness::Facts idle;
    constexpr Liveness::Facts busy{.dataWaits = true};
    constexpr Liveness::Facts ending{.serverEnds = true, .dataWaits = true};
    constexpr Liveness::Facts closing{.serverEnds = true, .closeIsDue = true};
    constexpr Liveness::Facts late{.closeIsLate = true, .closeIsDue = true};
    constexpr Liveness::Facts lateToClosed{.closeIsLate = true, .closeIsDue = true, .clientHasEnded = true};
    const std::pair<const char*, std::vector<Sweep>> cases[] = {
        {"silent: pinged, then lost",
         {{1, 0, 0, 0, idle, LIVES},
          {20'000, 0, 0, 0, idle, LIVES},
          {20'001, 0, 0, 0, idle, PING},
          {40'000, 0, 0, 0, idle, LIVES},
          {40'001, 0, 0, 0, idle, LOST}}},
        {"answers pings",
         {{1, 0, 0, 0, idle, LIVES},
          {20'001, 0, 0, 0, idle, PING},
          {30'000, 1, 0, 0, idle, LIVES},
          {49'999, 1, 0, 0, idle, LIVES},
          {50'000, 1, 0, 0, idle, PING}}},
        {"takes what is sent: need not be pinged",
         {{1, 0, 0, 0, idle, LIVES}, {15'000, 0, 1, 0, idle, LIVES}, {34'999, 0, 1, 0, idle, LIVES}}},
        {"takes nothing, and is lost whatever it sends",
         {{1'000, 0, 0, 9, busy, LIVES}, {60'999, 1, 0, 9, busy, LIVES}, {61'000, 2, 0, 9, busy, LOST}}},
        {"takes a byte now and then",
         {{1'000, 0, 0, 9, busy, LIVES},
          {60'000, 0, 1, 9, busy, LIVES},
          {119'999, 0, 1, 9, busy, LIVES},
          {120'000, 0, 1, 9, busy, LOST}}},
        {"the wait begins anew with each message",
         {{1'000, 0, 0, 9, busy, LIVES}, {60'000, 0, 1, 0, idle, LIVES}, {61'000, 0, 1, 9, busy, LIVES}}},
        {"its pong waits behind the data",
         {{1, 0, 0, 0, idle, LIVES},
          {20'001, 0, 0, 0, idle, PING},
          {40'000, 0, 0, 9, busy, LIVES},
          {59'999, 0, 0, 0, idle, LIVES},
          {60'000, 0, 0, 0, idle, LOST}}},
        {"the server ends: a second without a byte taken",
         {{1, 0, 0, 9, ending, LIVES},
          {500, 0, 1, 9, ending, LIVES},
          {1'499, 0, 1, 9, closing, LIVES},
          {1'500, 0, 1, 9, closing, LOST}}},
        {"its close is late",
         {{1, 0, 0, 0, late, LIVES}, {10'000, 0, 0, 0, late, LIVES}, {10'001, 0, 0, 0, late, LOST}}},
        {"its close is late for it still takes the end",
         {{1, 0, 0, 9, late, LIVES}, {60'000, 0, 0, 9, late, LIVES}, {60'001, 0, 0, 9, late, LOST}}},
        {"it has closed, and does not take the answer",
         {{1, 0, 0, 9, lateToClosed, LIVES}, {10'001, 0, 0, 9, lateToClosed, LOST}}}};
    const Limits limits;
    for (const auto& [what, sweeps] : cases) {
        SCOPED_TRACE(what);
        Liveness liveness(limits);
        for (const Sweep& sweep : sweeps) {
            EXPECT_EQ(liveness.judge(sweep.at, {sweep.acknowledged, sweep.received, sweep.waiting}, sweep.facts),
                      sweep.verdict)
                << sweep.at;
        }
    }
}

TEST(Liveness, APingThatWasNotSentIsNotWaitedFor) {
    const Limits limits;
    Liveness liveness(limits);
    EXPECT_EQ(liveness.judge(1, {}, {}), LIVES);
    EXPECT_EQ(liveness.judge(20'001, {}, {}), PING);
    liveness.pingWasNotSent();
    EXPECT_EQ(liveness.judge(40'001, {}, {}), PING);
}

}  // namespace KxNWebApiTest
