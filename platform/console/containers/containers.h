// What the console tells and does about one container.
#pragma once

#include <string>
#include <string_view>

#include "KxJsonFwd.h"
#include "platform/console/call.h"

namespace KxNConsole {

/// GET /containers/{name}: what Podman knows of it, without its environment, in which secrets stand.
void inspectContainer(const Call& call);

/// GET /containers/{name}/stats: what it uses, by the kernel's own counters.
void containerStats(const Call& call);

/// POST /containers/{name}/restart
void restartContainer(const Call& call);

/// Podman's path of the container `name`, in which every character that means something to HTTP is escaped.
std::string podmanPath(std::string_view name, std::string_view end);

/// Podman's inspection of the container that `call` names, read. False when there is none: the answer then stands.
bool inspect(const Call& call, KxNJson::json& inspection);

/// What `inspectContainer` answers for Podman's `inspection`. Missing and odd members become null.
KxNJson::json describeContainer(const KxNJson::json& inspection);

}  // namespace KxNConsole
