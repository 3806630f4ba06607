#include "platform/console/endpoints.h"

#include <array>
#include <iterator>

#include "platform/console/containers/containers.h"

namespace KxNConsole {

namespace {

using Parameter = KxSTamberWebApiParameter;
using namespace KxNTamberWebApi;

constexpr std::uint32_t flags(KxEParameterType type, KxEParameterLocation location) {
    return static_cast<std::uint32_t>(type) | static_cast<std::uint32_t>(location) << 8;
}

constexpr Parameter VERSION{"version", flags(TYPE_TEXT, LOCATION_PATH)};
constexpr Parameter NAME{"name", flags(TYPE_TEXT, LOCATION_PATH) | 1U << 16};
constexpr Parameter TIMEOUT{"timeout", flags(TYPE_INT64, LOCATION_QUERY)};

constexpr const Parameter* NAME_ONLY[] = {&VERSION, &NAME, nullptr};
constexpr const Parameter* RESTART[] = {&VERSION, &NAME, &TIMEOUT, nullptr};

struct Operation {
    KxSTamberWebApiEndpoint record;
    void (*answer)(const Call& call);
};

constexpr Operation operation(std::uint64_t id, const char* operationId, KxEMethod method, const char* route,
                              const Parameter* const* parameters, void (*answer)(const Call& call)) {
    return {{id, operationId, method, route, nullptr, parameters, 0, 0}, answer};
}

/// The id of each is its place, counted from 1.
constexpr Operation OPERATIONS[] = {
    operation(1, "inspectContainer", METHOD_GET, "/containers/{name}", NAME_ONLY, inspectContainer),
    operation(2, "restartContainer", METHOD_POST, "/containers/{name}/restart", RESTART, restartContainer),
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

void (*findOperation(const KxSTamberWebApiEndpoint* endpoint))(const Call& call) {
    return OPERATIONS[endpoint->id - 1].answer;
}

}  // namespace KxNConsole
