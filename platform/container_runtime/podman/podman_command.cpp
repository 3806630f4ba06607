#include "platform/container_runtime/podman/podman_command.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "KxCustomConfig.h"
#include "KxLog.h"
#include "service/paths.h"

namespace KxNContainer {

namespace {

namespace Paths = KxNContainerPaths;

bool exists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

class Environment {
public:
    Environment() {
        for (char** entry = environ; *entry != nullptr; ++entry) {
            entries.emplace_back(*entry);
        }
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            remove(name);  // the service reports for itself
        }
    }

    void set(const std::string& name, const std::string& value) {
        remove(name);
        entries.push_back(name + "=" + value);
    }

    void remove(const std::string& name) {
        std::erase_if(entries, [&](const std::string& entry) { return entry.starts_with(name + "="); });
    }

    /// Puts `directory` before what a list of directories holds.
    void prepend(const std::string& name, const std::string& directory) {
        const char* before = std::getenv(name.c_str());
        set(name, before != nullptr && *before != '\0' ? directory + ":" + before : directory);
    }

    std::vector<std::string> take() { return std::move(entries); }

private:
    std::vector<std::string> entries;
};

/// A home directory that holds the trust policy of the tools. Podman looks for the policy there first, and offers its
/// service no other way to name it.
std::string makeHomeWithPolicy() {
    const std::filesystem::path home = std::filesystem::path(Paths::PODMAN_SOCKET).parent_path() / "home";
    const std::filesystem::path policy = home / ".config/containers/policy.json";
    std::error_code error;
    std::filesystem::create_directories(policy.parent_path(), error);
    if (!std::filesystem::is_symlink(policy, error)) {
        std::filesystem::create_symlink(Paths::POLICY, policy, error);
        if (error) {
            KxCRTE_LOG(3, "Korvex Container Service: Cannot make '%s': %s", policy.c_str(), error.message().c_str());
        }
    }
    return home;
}

/// The environment for the container tools: this process's own, and where the tools hold them, their libraries,
/// programs and configuration files.
std::vector<std::string> containerToolsEnvironment() {
    Environment environment;
    if (exists(Paths::PODMAN)) {
        environment.prepend("PATH", std::filesystem::path(Paths::PODMAN).parent_path());
        if (exists(Paths::PODMAN_LIBS)) {
            environment.prepend("LD_LIBRARY_PATH", Paths::PODMAN_LIBS);
        }
        if (exists(Paths::CONTAINERS_CONFIG)) {
            environment.set("CONTAINERS_CONF", Paths::CONTAINERS_CONFIG);
        }
        if (exists(Paths::STORAGE_CONFIG)) {
            environment.set("CONTAINERS_STORAGE_CONF", Paths::STORAGE_CONFIG);
        }
        if (exists(Paths::POLICY)) {
            environment.set("HOME", makeHomeWithPolicy());
        }
    }
    return environment.take();
}

}  // namespace

KxNProcess::Program podmanServiceCommand(const PodmanAddress& address) {
    KxNProcess::Program command{exists(Paths::PODMAN) ? Paths::PODMAN : "podman", {}, containerToolsEnvironment()};
    if (command.executable == Paths::PODMAN && !exists(Paths::CONTAINERS_CONFIG)) {
        // A configuration file of the tools says itself which of these it wants.
        for (const auto& [option, program] : {std::pair{"--conmon", Paths::CONMON}, {"--runtime", Paths::CRUN}}) {
            if (exists(program)) {
                command.arguments.insert(command.arguments.end(), {option, program});
            }
        }
    }
    command.arguments.insert(command.arguments.end(), {"system", "service", "--time=0", address.text()});
    return command;
}

std::vector<std::string> composeEnvironment(const PodmanAddress& address) {
    std::vector<std::string> environment = containerToolsEnvironment();
    // What ours says about the tool itself, or about where Podman is, is not for it.
    std::erase_if(environment, [](const std::string& entry) {
        return entry.starts_with("COMPOSE_") || entry.starts_with("DOCKER_") || entry.starts_with("LC_");
    });
    environment.push_back("DOCKER_HOST=" + (address.socketPath.empty()
                                                ? "tcp://127.0.0.1:" + std::to_string(address.port)
                                                : "unix://" + address.socketPath));
    environment.push_back("COMPOSE_DOCKER_CLI_BUILD=0");  // there is no docker program
    environment.push_back("LC_ALL=C.UTF-8");
    return environment;
}

PodmanAddress configuredPodman(const KxCCTESettings::KxSUserSettings& settings) {
    namespace Config = KxNCustomConfig::KxNContainerRuntime;
    const auto* config = KxCCustomConfig::getInstance();
    if (std::string reason; !config->isUsable(Config::pSection, &reason)) {
        throw std::runtime_error(reason);
    }
    if (config->getOption(Config::pSection, Config::pOptionPodmanTransport, "unix", false) == "unix") {
        return {Paths::PODMAN_SOCKET, 0};
    }
    if (!std::in_range<std::uint16_t>(settings.tcpPort) || settings.tcpPort == 0) {
        throw std::runtime_error("Podman cannot be reached by TCP: 'tcp_port' of the settings is " +
                                 std::to_string(settings.tcpPort));
    }
    return {"", static_cast<std::uint16_t>(settings.tcpPort)};
}

bool isPodmanExternal() {
    const char* const value = std::getenv("KX_PODMAN");
    return value != nullptr && std::string_view(value) == "external";
}

}  // namespace KxNContainer
