#include "platform/container_runtime/podman/podman_api.h"

#include <algorithm>
#include <cstdint>

#include "KxJson.h"
#include "platform/common/text.h"

namespace KxNContainer {

namespace {

/// The Docker-compatible one: Podman's own API does not honour `t` on stop and answers a delete with a body.
constexpr std::string_view API_ROOT = "/v1.41";

constexpr std::string_view CONTAINERS = "/containers/";

constexpr std::chrono::seconds SHORT_CALL{120};
constexpr std::chrono::seconds STOP_MARGIN{30};
constexpr std::int64_t LONGEST_STOP = 10LL * 365 * 24 * 3600;

bool mayStandInTarget(char c) {
    return KxNCommon::isAlphanumeric(c) || std::string_view("-._~!$&'()*+,;=:@/?").find(c) != std::string_view::npos;
}

bool mayStandInHeaderName(char c) {
    return KxNCommon::isAlphanumeric(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

struct Path {
    std::string_view resource;
    std::string_view query;
};

Path splitPath(std::string_view path) {
    const std::size_t mark = path.find('?');
    return mark == std::string_view::npos ? Path{path, {}} : Path{path.substr(0, mark), path.substr(mark + 1)};
}

/// The value of a query parameter, the first of repeated ones.
std::optional<std::string_view> queryValue(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const std::string_view parameter = query.substr(0, query.find('&'));
        if (parameter.substr(0, parameter.find('=')) == name) {
            return parameter.size() > name.size() ? parameter.substr(name.size() + 1) : std::string_view();
        }
        query.remove_prefix(std::min(query.size(), parameter.size() + 1));
    }
    return std::nullopt;
}

/// `text` as JSON, a discarded value when it is none. Throws nothing but std::bad_alloc.
KxNJson::json parseJson(const std::string& text) {
    return KxNJson::json::parse(text, nullptr, false);
}

}  // namespace

std::string requestTarget(std::string_view path) {
    std::string target(API_ROOT);
    for (std::size_t index = 0; index < path.size(); ++index) {
        const char c = path[index];
        const bool isEscape = c == '%' && index + 2 < path.size() && KxNCommon::hexDigit(path[index + 1]) >= 0 &&
                              KxNCommon::hexDigit(path[index + 2]) >= 0;
        if (isEscape || mayStandInTarget(c)) {
            target += c;
        } else {
            target += '%';
            KxNCommon::appendHex(target, c, KxNCommon::UPPER_CASE_DIGITS);
        }
    }
    return target;
}

std::optional<HeaderLine> parseHeaderLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        return std::nullopt;
    }
    const std::string_view name = line.substr(0, colon);
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    if (!std::all_of(name.begin(), name.end(), mayStandInHeaderName) || KxNCommon::holdsControl(value, "\t")) {
        return std::nullopt;
    }
    return HeaderLine{name, value};
}

std::chrono::seconds timeLimit(std::string_view path, KxCCurlHandler::MethodType method) {
    const auto [resource, query] = splitPath(path);
    if (method != KxCCurlHandler::MethodType::POST || !resource.starts_with(CONTAINERS) ||
        !(resource.ends_with("/stop") || resource.ends_with("/restart"))) {
        return SHORT_CALL;
    }
    const auto timeout = queryValue(query, "t");
    const auto seconds = KxNCommon::parseNumber<std::int64_t>(timeout.value_or(""));
    if (!seconds) {
        return SHORT_CALL;  // Podman refuses what is no number
    }
    return std::chrono::seconds(std::clamp<std::int64_t>(*seconds, 0, LONGEST_STOP)) + STOP_MARGIN;
}

std::optional<std::string> inspectPath(std::string_view path) {
    constexpr std::string_view LOGS = "/logs";
    const std::string_view resource = splitPath(path).resource;
    if (!resource.starts_with(CONTAINERS) || !resource.ends_with(LOGS) ||
        resource.size() <= CONTAINERS.size() + LOGS.size()) {
        return std::nullopt;
    }
    return std::string(resource.substr(0, resource.size() - LOGS.size())) + "/json";
}

void correctStatus(std::string_view path, KxCCurlHandler::MethodType method, PodmanReply& reply) {
    const auto [resource, query] = splitPath(path);
    const auto force = queryValue(query, "force");
    if (method != KxCCurlHandler::MethodType::DELETE || !resource.starts_with(CONTAINERS) ||
        (force && (*force == "true" || *force == "1")) || reply.status != 500) {
        return;
    }
    const KxNJson::json problem = parseJson(reply.body);
    if (problem.is_object() && problem.contains("cause") && problem["cause"] == "container state improper") {
        reply.status = 409;  // the documented one for a container that runs
    }
}

}  // namespace KxNContainer
