#include "platform/container_runtime/compose/compose_project.h"

#include <stdexcept>

#include "KxJson.h"
#include "KxJsonText.h"

namespace KxNContainer {

namespace {

/// The query for the label that docker-compose gives to everything it makes; the project's name needs no escaping.
std::string labelFilter(const std::string& project) {
    return "filters=%7B%22label%22%3A%5B%22com.docker.compose.project%3D" + project + "%22%5D%7D";
}

KxNJson::json ask(const AskPodman& askPodman, const std::string& path) {
    const PodmanReply reply = askPodman(path);
    if (reply.status < 200 || reply.status > 299) {
        throw std::runtime_error(reply.body);
    }
    KxNJson::json answer;
    if (std::string reason; !KxNJson::parse(reply.body, answer, reason)) {
        throw std::runtime_error("Podman gave an answer that cannot be used: " + reason);
    }
    return answer;
}

ComposeProject readProject(const AskPodman& askPodman, const std::string& name) {
    ComposeProject project;
    for (const auto& container : ask(askPodman, "/containers/json?all=true&" + labelFilter(name))) {
        project.objects.insert(container.at("Id").get<std::string>());
        project.containers += 1;
        project.runningContainers += container.at("State").get<std::string>() == "running" ? 1 : 0;
    }
    for (const auto& network : ask(askPodman, "/networks?" + labelFilter(name))) {
        project.objects.insert(network.at("Id").get<std::string>());
        project.networks += 1;
    }
    // Podman answers null instead of an empty array.
    const KxNJson::json volumes = ask(askPodman, "/volumes?" + labelFilter(name)).at("Volumes");
    for (const auto& volume : volumes) {
        project.objects.insert(volume.at("Name").get<std::string>());
    }
    return project;
}

}  // namespace

ComposeProject findComposeProject(const AskPodman& askPodman, const std::string& name) {
    ComposeProject unknown;
    try {
        return readProject(askPodman, name);
    } catch (const KxNJson::json::exception& exception) {
        unknown.problem = std::string("Podman gave an answer that cannot be used: ") + exception.what();
    } catch (const std::exception& exception) {
        unknown.problem = exception.what();
    }
    return unknown;
}

}  // namespace KxNContainer
