// How many requests there were, how they ended and how long they took.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "platform/console/metrics/metrics_text.h"
#include "platform/web_api/operation/observer.h"

namespace KxNConsole {

/// Counting costs a request a few additions. Any thread, once all tables are there.
class RequestCounts {
public:
    RequestCounts();

    /// Counts the requests for the endpoints of `table` by their operations.
    void addTable(const KxSTamberWebApiEndpoint* const* table);

    void count(const KxNTamberWebApi::AnsweredRequest& request);
    void countStreamEnd(const KxSTamberWebApiEndpoint& endpoint);
    /// The log entries that could not be given to somebody who follows them.
    void countGap() { gaps.fetch_add(1, std::memory_order_relaxed); }

    void write(MetricsText& metrics) const;

private:
    using Counter = std::atomic<std::uint64_t>;

    /// The statuses that are told apart; what else there is counts as the last one.
    static constexpr std::array STATUSES = {0,   101, 200, 201, 204, 304, 400, 401, 403, 404, 405, 406, 408, 409,
                                            413, 414, 415, 417, 426, 429, 431, 500, 501, 503, 505, 507, 599};
    /// Upper ends of the histogram, in milliseconds.
    static constexpr std::array BUCKETS = {1, 5, 10, 50, 100, 500, 1'000, 5'000, 30'000, 120'000};
    static constexpr std::array<const char*, BUCKETS.size()> BUCKET_NAMES = {"0.001", "0.005", "0.01", "0.05", "0.1",
                                                                             "0.5",   "1",     "5",    "30",   "120"};

    struct Operation {
        const char* id;
        std::array<Counter, STATUSES.size()> byStatus{};
        std::array<Counter, BUCKETS.size() + 1> byDuration{};
        Counter nanoseconds{0};
        std::atomic<std::int64_t> streams{0};
    };

    static void writeDurations(const Operation& operation, MetricsText& metrics);
    Operation& find(const KxSTamberWebApiEndpoint* endpoint) const;

    std::unordered_map<const KxSTamberWebApiEndpoint*, std::unique_ptr<Operation>> operations;
    std::unique_ptr<Operation> others;  // what led to no endpoint
    Counter uploadedBytes{0};
    Counter gaps{0};
};

}  // namespace KxNConsole
