#include "platform/container_runtime/logs/container_log.h"

#include <algorithm>

#include "KxJson.h"
#include "platform/common/text.h"
#include "platform/container_runtime/podman/podman_api.h"

namespace KxNContainer {

namespace {

using KxNJson::json;

/// The member of an object, null when there is none.
const json& member(const json& object, const char* name) {
    static const json NOTHING;
    const auto found = object.is_object() ? object.find(name) : object.end();
    return object.is_object() && found != object.end() ? *found : NOTHING;
}

std::string text(const json& value) {
    return value.is_string() ? value.get<std::string>() : std::string();
}

template <class Number>
Number number(const json& value) {
    return value.is_number_integer() ? value.get<Number>() : Number{0};
}

bool isContainerId(std::string_view id) {
    return id.size() == 64 && id.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

ContainerLog::Driver driverOf(std::string_view name) {
    if (name == "json-file" || name == "k8s-file") {
        return ContainerLog::Driver::file;
    }
    return name == "journald" ? ContainerLog::Driver::journal : ContainerLog::Driver::other;
}

bool takeParameter(std::string_view name, std::string_view value, LogRange& range, bool& isFollowing) {
    if (name == "follow") {
        isFollowing = value == "true";
    } else if (name == "stdout" || name == "stderr") {
        range.wantsOutput[name == "stderr" ? 1 : 0] = value == "true";
    } else if (name == "timestamps") {
        range.hasTimestamps = value == "true";
    } else if (name == "tail") {
        if (value.empty() || value == "all") {
            return true;
        }
        const auto lines = KxNCommon::parseNumber<std::int64_t>(value);
        const bool isHuge = value.find_first_not_of("0123456789") == std::string_view::npos;
        range.tail = lines && *lines >= 0 ? static_cast<std::uint64_t>(*lines) : LogRange::ALL;
        return lines ? *lines >= 0 : isHuge;
    } else if (name == "since" || name == "until") {
        const auto seconds = KxNCommon::parseNumber<std::int64_t>(value);
        if (seconds && *seconds != 0) {  // 0 is no limit to Podman
            (name == "since" ? range.since : range.until) = toLogTime(*seconds);
        }
        return seconds.has_value();
    } else {
        return false;
    }
    return true;
}

}  // namespace

std::optional<ContainerLog> ContainerLog::parse(const std::string& inspection) {
    const json container = json::parse(inspection, nullptr, false);
    ContainerLog log;
    log.id = text(member(container, "Id"));
    if (!isContainerId(log.id)) {
        return std::nullopt;
    }
    const json& config = member(member(container, "HostConfig"), "LogConfig");
    log.driverName = text(member(config, "Type"));
    log.driver = driverOf(log.driverName);
    log.path = text(member(container, "LogPath"));
    if (log.path.empty()) {
        log.path = text(member(config, "Path"));  // where Podman's own API has it
    }
    const json& state = member(container, "State");
    const std::string status = text(member(state, "Status"));
    log.hasTerminal = member(member(container, "Config"), "Tty") == json(true);
    log.isRunning =
        member(state, "Running") == json(true) || status == "running" || status == "paused" || status == "stopping";
    log.hasStarted = status != "created" && status != "configured" && status != "initialized";
    log.process = number<pid_t>(member(state, "Pid"));
    log.exitCode = number<std::int32_t>(member(state, "ExitCode"));
    return log;
}

std::optional<LogRange> parseLogQuery(std::string_view query) {
    LogRange range;
    range.wantsOutput = {false, false};
    bool isFollowing = false;
    while (!query.empty()) {
        const std::string_view parameter = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), parameter.size() + 1));
        const std::size_t mark = std::min(parameter.find('='), parameter.size());
        const std::string_view value = parameter.substr(std::min(mark + 1, parameter.size()));
        if (!takeParameter(parameter.substr(0, mark), value, range, isFollowing)) {
            return std::nullopt;
        }
    }
    return isFollowing ? std::optional(range) : std::nullopt;
}

}  // namespace KxNContainer
