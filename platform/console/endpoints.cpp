#include "platform/console/endpoints.h"

#include <array>
#include <iterator>

#include "platform/console/containers/containers.h"
#include "platform/console/containers/log_entries.h"
#include "platform/console/device/audit.h"
#include "platform/console/device/health.h"
#include "platform/console/device/storage.h"
#include "platform/console/events/follow_events.h"
#include "platform/console/metrics/get_metrics.h"

namespace KxNConsole {

namespace {

using Parameter = KxSTamberWebApiParameter;
using namespace KxNTamberWebApi;

constexpr std::uint32_t flags(KxEParameterType type, KxEParameterLocation location) {
    return static_cast<std::uint32_t>(type) | static_cast<std::uint32_t>(location) << 8;
}

constexpr Parameter VERSION{"version", flags(TYPE_TEXT, LOCATION_PATH)};
constexpr Parameter NAME{"name", flags(TYPE_TEXT, LOCATION_PATH) | 1U << 16};
constexpr Parameter AFTER{"after", flags(TYPE_INT64, LOCATION_QUERY)};
constexpr Parameter CURSOR{"cursor", flags(TYPE_TEXT, LOCATION_QUERY)};
constexpr Parameter LIMIT{"limit", flags(TYPE_INT64, LOCATION_QUERY)};
constexpr Parameter SINCE{"since", flags(TYPE_INT64, LOCATION_QUERY)};
constexpr Parameter TAIL{"tail", flags(TYPE_TEXT, LOCATION_QUERY)};
constexpr Parameter TIMEOUT{"timeout", flags(TYPE_INT64, LOCATION_QUERY)};

constexpr const Parameter* NO_PARAMETERS[] = {&VERSION, nullptr};
constexpr const Parameter* NAME_ONLY[] = {&VERSION, &NAME, nullptr};
constexpr const Parameter* AFTER_ONLY[] = {&VERSION, &AFTER, nullptr};
constexpr const Parameter* LOG_ENTRIES[] = {&VERSION, &NAME, &TAIL, &SINCE, &CURSOR, nullptr};
constexpr const Parameter* GET_AUDIT[] = {&VERSION, &AFTER, &LIMIT, nullptr};
constexpr const Parameter* RESTART[] = {&VERSION, &NAME, &TIMEOUT, nullptr};

struct Operation {
    KxSTamberWebApiEndpoint record;
    void (*answer)(const Call& call);
    void (*stream)(const StreamCall& call);  ///< null when the answer is none
};

constexpr Operation operation(std::uint64_t id, const char* operationId, KxEMethod method, const char* route,
                              const Parameter* const* parameters, void (*answer)(const Call& call),
                              void (*stream)(const StreamCall& call) = nullptr) {
    return {{id, operationId, method, route, nullptr, parameters, 0, 0}, answer, stream};
}

/// The id of each is its place, counted from 1.
constexpr Operation OPERATIONS[] = {
    operation(1, "inspectContainer", METHOD_GET, "/containers/{name}", NAME_ONLY, inspectContainer),
    operation(2, "restartContainer", METHOD_POST, "/containers/{name}/restart", RESTART, restartContainer),
    operation(3, "containerStats", METHOD_GET, "/containers/{name}/stats", NAME_ONLY, containerStats),
    operation(4, "followLogEntries", METHOD_GET, "/containers/{name}/log-entries/ws", LOG_ENTRIES, openLogEntries,
              followLogEntries),
    operation(5, "followEvents", METHOD_GET, "/events/ws", AFTER_ONLY, openEvents, followEvents),
    operation(6, "getHealth", METHOD_GET, "/health", NO_PARAMETERS, getHealth),
    operation(7, "getMetrics", METHOD_GET, "/metrics", NO_PARAMETERS, getMetrics),
    operation(8, "getStorage", METHOD_GET, "/storage", NO_PARAMETERS, getStorage),
    operation(9, "getAudit", METHOD_GET, "/audit", GET_AUDIT, getAudit),
};

constexpr auto RECORDS = [] {
    std::array<const KxSTamberWebApiEndpoint*, std::size(OPERATIONS) + 1> records{};
    for (std::size_t i = 0; i < std::size(OPERATIONS); ++i) {
        records[i] = &OPERATIONS[i].record;
    }
    return records;
}();

}  // namespace

const KxSTamberWebApiEndpoint* const* endpoints() {
    return RECORDS.data();
}

void callOperation(const KxSTamberWebApiEndpoint& endpoint, const Call& call) {
    OPERATIONS[endpoint.id - 1].answer(call);
}

void callStream(const KxSTamberWebApiEndpoint& endpoint, const StreamCall& call) {
    OPERATIONS[endpoint.id - 1].stream(call);
}

}  // namespace KxNConsole
