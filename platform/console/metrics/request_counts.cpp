#include "platform/console/metrics/request_counts.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace KxNConsole {

namespace {

constexpr std::array REFUSALS = {401, 403, 429};

void increment(std::atomic<std::uint64_t>& counter, std::uint64_t by = 1) {
    counter.fetch_add(by, std::memory_order_relaxed);
}

std::uint64_t read(const std::atomic<std::uint64_t>& counter) {
    return counter.load(std::memory_order_relaxed);
}

}  // namespace

RequestCounts::RequestCounts() : others(std::make_unique<Operation>()) {
    others->id = "none";
}

void RequestCounts::addTable(const KxSTamberWebApiEndpoint* const* table) {
    for (; *table != nullptr; ++table) {
        auto operation = std::make_unique<Operation>();
        operation->id = (*table)->operationId;
        operations.emplace(*table, std::move(operation));
    }
}

RequestCounts::Operation& RequestCounts::find(const KxSTamberWebApiEndpoint* endpoint) const {
    const auto found = operations.find(endpoint);
    return found != operations.end() ? *found->second : *others;
}

void RequestCounts::count(const KxNTamberWebApi::AnsweredRequest& request) {
    Operation& operation = find(request.endpoint);
    const auto status = std::lower_bound(STATUSES.begin(), STATUSES.end() - 1, request.status);
    const bool isKnown = *status == request.status;
    increment(operation.byStatus[isKnown ? static_cast<std::size_t>(status - STATUSES.begin()) : STATUSES.size() - 1]);
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(request.duration).count();
    const auto bucket = std::lower_bound(BUCKETS.begin(), BUCKETS.end(), milliseconds);
    increment(operation.byDuration[static_cast<std::size_t>(bucket - BUCKETS.begin())]);
    increment(operation.nanoseconds, static_cast<std::uint64_t>(request.duration.count()));
    if (request.status == 101) {
        operation.streams.fetch_add(1, std::memory_order_relaxed);
    }
    if (request.uploadedBytes != 0) {
        increment(uploadedBytes, request.uploadedBytes);
    }
}

void RequestCounts::countStreamEnd(const KxSTamberWebApiEndpoint& endpoint) {
    find(&endpoint).streams.fetch_sub(1, std::memory_order_relaxed);
}

void RequestCounts::write(MetricsText& metrics) const {
    std::vector<const Operation*> all{others.get()};
    for (const auto& [endpoint, operation] : operations) {
        all.push_back(operation.get());
    }
    std::ranges::sort(all, {}, [](const Operation* operation) { return std::string_view(operation->id); });

    std::array<std::uint64_t, REFUSALS.size()> refusals{};
    metrics.begin("kx_http_requests_total", "counter",
                  "Requests by operation and status; 0: the client had gone, 599: any other.");
    for (const Operation* operation : all) {
        for (std::size_t i = 0; i < STATUSES.size(); ++i) {
            const std::uint64_t number = read(operation->byStatus[i]);
            if (number == 0) {
                continue;
            }
            metrics.add(number, {{"operation", operation->id}, {"status", std::to_string(STATUSES[i])}});
            const auto refusal = std::find(REFUSALS.begin(), REFUSALS.end(), STATUSES[i]);
            if (refusal != REFUSALS.end()) {
                refusals[static_cast<std::size_t>(refusal - REFUSALS.begin())] += number;
            }
        }
    }
    metrics.begin("kx_http_request_duration_seconds", "histogram",
                  "From the end of a request's head to its answer, by operation.");
    for (const Operation* operation : all) {
        writeDurations(*operation, metrics);
    }
    metrics.begin("kx_http_refusals_total", "counter", "Requests that were not let in, by status.");
    for (std::size_t i = 0; i < REFUSALS.size(); ++i) {
        metrics.add(refusals[i], {{"status", std::to_string(REFUSALS[i])}});
    }
    metrics.begin("kx_streams", "gauge", "Open WebSockets by operation.");
    for (const Operation* operation : all) {
        if (std::string_view(operation->id).starts_with("follow") ||
            std::string_view(operation->id) == "getContainerLogs") {
            metrics.add(operation->streams.load(std::memory_order_relaxed), {{"operation", operation->id}});
        }
    }
    metrics.begin("kx_upload_bytes_total", "counter", "Bytes of uploaded files.");
    metrics.add(read(uploadedBytes));
    metrics.begin("kx_log_gaps_total", "counter", "Gaps that followers of log entries were told of.");
    metrics.add(read(gaps));
}

void RequestCounts::writeDurations(const Operation& operation, MetricsText& metrics) {
    std::uint64_t sum = 0;
    std::array<std::uint64_t, BUCKETS.size() + 1> upTo{};
    for (std::size_t i = 0; i < upTo.size(); ++i) {
        upTo[i] = sum += read(operation.byDuration[i]);
    }
    if (sum == 0) {
        return;
    }
    for (std::size_t i = 0; i < BUCKETS.size(); ++i) {
        metrics.add(upTo[i], {{"operation", operation.id}, {"le", BUCKET_NAMES[i]}}, "_bucket");
    }
    metrics.add(sum, {{"operation", operation.id}, {"le", "+Inf"}}, "_bucket");
    metrics.add(static_cast<double>(read(operation.nanoseconds)) / 1e9, {{"operation", operation.id}}, "_sum");
    metrics.add(sum, {{"operation", operation.id}}, "_count");
}

}  // namespace KxNConsole
