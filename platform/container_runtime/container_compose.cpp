// The operations of the container runtime that run compose commands.
#include "KxJson.h"
#include "platform/container_runtime/container_impl.h"
#include "platform/container_runtime/podman/podman_api.h"
#include "platform/container_runtime/podman/podman_command.h"

namespace KxNContainer {

namespace {

/// The environment of the compose tool. What ours says about the tool itself, or about where Podman is, is not for it.
std::vector<std::string> toolEnvironment(const PodmanAddress& podman) {
    std::vector<std::string> environment = containerToolsEnvironment();
    std::erase_if(environment, [](const std::string& entry) {
        return entry.starts_with("COMPOSE_") || entry.starts_with("DOCKER_") || entry.starts_with("LC_");
    });
    environment.push_back("DOCKER_HOST=" + (podman.socketPath.empty() ? "tcp://127.0.0.1:" + std::to_string(podman.port)
                                                                      : "unix://" + podman.socketPath));
    environment.push_back("COMPOSE_DOCKER_CLI_BUILD=0");  // there is no docker program
    environment.push_back("LC_ALL=C.UTF-8");
    return environment;
}

int runCompose(ComposeCommands& commands, ComposeCommand command, const char* fileName, KxNJson::json& result) {
    return commands.run(command, fileName != nullptr ? fileName : "", result);
}

}  // namespace

ComposeSetup KxCContainer::Impl::composeSetup() {
    const auto askPodman = [this](const std::string& path) {
        const auto cancellation = runningRequests();
        const auto method = KxCCurlHandler::MethodType::GET;
        const auto deadline = std::chrono::steady_clock::now() + timeLimit(path, method);
        return podman.execute({path, method, {"Accept: application/json"}, ""}, {*cancellation, deadline});
    };
    return {KxNContainerPaths::COMPOSE_FILES_PATH,
            {KxNContainerPaths::DOCKER_COMPOSE, KxNComposeFileHandler::ComposeTool::Exe},
            [this] { return toolEnvironment(podman.getAddress()); },
            askPodman};
}

int KxCContainer::CreateCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Create, fileName, result);
}

int KxCContainer::StartCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Start, fileName, result);
}

int KxCContainer::StopCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Stop, fileName, result);
}

int KxCContainer::RemoveCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Remove, fileName, result);
}

}  // namespace KxNContainer
