// Any request target gives an answer, and values that reach a handler keep their promises.
#include <cstring>

#include "api/endpoints.h"
#include "fuzz/require.h"
#include "platform/common/text.h"
#include "platform/web_api/http/request_target.h"
#include "platform/web_api/routing/router.h"

using namespace KxNTamberWebApi;

static void checkValues(const RouteMatch& match, std::size_t targetSize) {
    const auto* const* value = match.values();
    for (; *value != nullptr; ++value) {
        const std::string_view text = (*value)->text;
        KX_REQUIRE(text.size() <= targetSize);
        KX_REQUIRE((*value)->location != LOCATION_PATH || findPathParameterFault(text) == nullptr);
        KX_REQUIRE(std::strcmp((*value)->name, "name") != 0 || match.name() == text);
        KX_REQUIRE((*value)->type != TYPE_BOOLEAN || parseBoolean(text) == (*value)->boolean);
        KX_REQUIRE((*value)->type != TYPE_INT64 || KxNCommon::parseNumber<std::int64_t>(text) == (*value)->integer);
    }
    KX_REQUIRE(value - match.values() >= 1);  // the version at least
}

static void requireSame(const RouteMatch& left, const RouteMatch& right) {
    KX_REQUIRE(left.outcome == right.outcome && left.endpoint == right.endpoint);
    KX_REQUIRE(left.allow == right.allow && left.detail == right.detail);
    const auto* const* a = left.values();
    const auto* const* b = right.values();
    for (; *a != nullptr && *b != nullptr; ++a, ++b) {
        KX_REQUIRE(std::strcmp((*a)->text, (*b)->text) == 0);
    }
    KX_REQUIRE(*a == *b);
}

/// The same target with each character of its path escaped means the same.
static std::string escapePath(std::string_view path) {
    std::string escaped;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '/') {
            escaped += '/';
        } else if (path[i] == '%') {
            escaped += path.substr(i, 3);
            i += 2;
        } else {
            char code[4];
            std::snprintf(code, sizeof(code), "%%%02X", static_cast<unsigned char>(path[i]));
            escaped += code;
        }
    }
    return escaped;
}

void fuzz(std::string_view input) {
    static const Router router(KxNCre::ENDPOINTS, "/api/cre/v1.0", "/api/cre/{version}");
    static RouteMatch reused;
    constexpr std::string_view methods[] = {"GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS", "BREW"};
    if (input.empty()) {
        return;
    }
    const std::string_view method = methods[byteAt(input, 0) % std::size(methods)];
    const std::string_view target = input.substr(1);

    router.route(method, target, reused);
    RouteMatch fresh;
    router.route(method, target, fresh);
    requireSame(reused, fresh);
    KX_REQUIRE((fresh.outcome == RouteMatch::Outcome::matched) == fresh.detail.empty() ||
               fresh.outcome == RouteMatch::Outcome::options);
    if (fresh.outcome != RouteMatch::Outcome::matched) {
        return;
    }
    KX_REQUIRE(fresh.endpoint != nullptr);
    checkValues(fresh, target.size());

    const auto split = splitRequestTarget(target);
    KX_REQUIRE(split.has_value());
    const std::string escaped = escapePath(split->path) + "?" + std::string(split->query);
    router.route(method, escaped, reused);
    requireSame(reused, fresh);
}
