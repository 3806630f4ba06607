// One container in the words of the console, made of Podman's.
#include <sys/stat.h>

#include <filesystem>
#include <initializer_list>

#include "KxJson.h"
#include "platform/common/text.h"
#include "platform/console/containers/containers.h"
#include "service/paths.h"

namespace KxNConsole {

using KxNJson::json;

namespace {

/// The member that lies at the end of `keys`; null when there is none.
json at(const json& object, std::initializer_list<const char*> keys) {
    const json* found = &object;
    for (const char* key : keys) {
        const auto member = found->is_object() ? found->find(key) : found->end();
        if (!found->is_object() || member == found->end()) {
            return nullptr;
        }
        found = &*member;
    }
    return *found;
}

std::string textAt(const json& object, std::initializer_list<const char*> keys) {
    const json found = at(object, keys);
    return found.is_string() ? found.get<std::string>() : std::string();
}

/// A text, or null for an empty one.
json textOrNull(const std::string& text) {
    return text.empty() ? json() : json(text);
}

/// A time, or null for the one that Podman writes for never.
json timeAt(const json& object, std::initializer_list<const char*> keys) {
    const std::string time = textAt(object, keys);
    return textOrNull(time.starts_with("0001-") ? std::string() : time);
}

/// A number of decimal digits, or null.
json numberOf(std::string_view text) {
    const auto number = KxNCommon::parseNumber<std::uint64_t>(text);
    return number ? json(*number) : json();
}

json describeCommand(const json& inspection) {
    json command = json::array();
    if (const std::string path = textAt(inspection, {"Path"}); !path.empty()) {
        command.push_back(path);
    }
    for (const json& argument : at(inspection, {"Args"})) {
        command.push_back(argument);
    }
    return command;
}

json describeState(const json& inspection) {
    return {{"Status", at(inspection, {"State", "Status"})},
            {"StartedAt", timeAt(inspection, {"State", "StartedAt"})},
            {"FinishedAt", timeAt(inspection, {"State", "FinishedAt"})},
            {"ExitCode", at(inspection, {"State", "ExitCode"})},
            {"OOMKilled", at(inspection, {"State", "OOMKilled"})},
            {"Error", textAt(inspection, {"State", "Error"})},
            {"Health", textOrNull(textAt(inspection, {"State", "Health", "Status"}))},
            {"RestartCount", at(inspection, {"RestartCount"})}};
}

/// Podman has {"80/tcp": [{"HostIp", "HostPort"}, …] or null}.
json describePorts(const json& inspection) {
    json ports = json::array();
    const json bindings = at(inspection, {"NetworkSettings", "Ports"});
    for (const auto& [port, places] : bindings.items()) {
        const std::size_t slash = std::min(port.find('/'), port.size());
        json described = {{"ContainerPort", numberOf(std::string_view(port).substr(0, slash))},
                          {"Protocol", slash < port.size() ? port.substr(slash + 1) : "tcp"},
                          {"HostIp", nullptr},
                          {"HostPort", nullptr}};
        if (!places.is_array() || places.empty()) {
            ports.push_back(described);
            continue;
        }
        for (const json& place : places) {
            described["HostIp"] = textOrNull(textAt(place, {"HostIp"}));
            described["HostPort"] = numberOf(textAt(place, {"HostPort"}));
            ports.push_back(described);
        }
    }
    return ports;
}

json describeMounts(const json& inspection) {
    json mounts = json::array();
    for (const json& mount : at(inspection, {"Mounts"})) {
        mounts.push_back({{"Source", at(mount, {"Source"})},
                          {"Destination", at(mount, {"Destination"})},
                          {"ReadOnly", at(mount, {"RW"}) == json(false)}});
    }
    return mounts;
}

json describeNetworks(const json& inspection) {
    json networks = json::array();
    const json joined = at(inspection, {"NetworkSettings", "Networks"});
    for (const auto& [name, network] : joined.items()) {
        networks.push_back(name);
    }
    return networks;
}

/// The compose file that the container was made from, as docker-compose's labels tell it.
json describeCompose(const json& inspection) {
    const std::string service = textAt(inspection, {"Config", "Labels", "com.docker.compose.service"});
    const std::string file = textAt(inspection, {"Config", "Labels", "com.docker.compose.project.config_files"});
    if (service.empty()) {
        return nullptr;
    }
    const bool isManaged = file.starts_with(KxNContainer::KxNContainerPaths::COMPOSE_FILES_PATH);
    return {{"File", isManaged ? std::filesystem::path(file).filename().string() : file}, {"Service", service}};
}

json describeLog(const json& inspection) {
    const std::string path = textAt(inspection, {"LogPath"});
    struct stat status {};
    const bool isFile = !path.empty() && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return {{"Driver", at(inspection, {"HostConfig", "LogConfig", "Type"})},
            {"Bytes", isFile ? json(static_cast<std::uint64_t>(status.st_size)) : json()}};
}

}  // namespace

json describeContainer(const json& inspection) {
    std::string name = textAt(inspection, {"Name"});
    name.erase(0, name.starts_with('/') ? 1 : 0);
    const std::string restartPolicy = textAt(inspection, {"HostConfig", "RestartPolicy", "Name"});
    return {{"Id", at(inspection, {"Id"})},
            {"Name", name},
            {"Image", at(inspection, {"Config", "Image"})},
            {"ImageId", at(inspection, {"Image"})},
            {"Command", describeCommand(inspection)},
            {"Created", timeAt(inspection, {"Created"})},
            {"State", describeState(inspection)},
            {"RestartPolicy", restartPolicy.empty() ? "no" : restartPolicy},
            {"Ports", describePorts(inspection)},
            {"Mounts", describeMounts(inspection)},
            {"Networks", describeNetworks(inspection)},
            {"Compose", describeCompose(inspection)},
            {"Log", describeLog(inspection)}};
}

}  // namespace KxNConsole
