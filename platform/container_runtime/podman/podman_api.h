// What is particular to Podman's HTTP API.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "KxContainer.h"

namespace KxNContainer {

/// The request target for `path`, which is relative to the API root. Characters that may not stand in a target (spaces,
/// controls, bytes beyond ASCII, `"#<>[\]^`{|}`, a "%" that begins no escape) are percent-encoded, so that nothing in a
/// name ends the request line; everything else goes out as it came. Since a name's "?" looks like the beginning of the
/// query, callers refuse such names.
std::string requestTarget(std::string_view path);

struct HeaderLine {
    std::string_view name;
    std::string_view value;
};

/// Takes a complete header line apart. None when it is not one, which includes whatever would begin another line.
std::optional<HeaderLine> parseHeaderLine(std::string_view line);

/// How long a short request may take: 120 s, or for a stop or restart of a container with the query `t` that many
/// seconds and 30 more.
std::chrono::seconds timeLimit(std::string_view path, KxCCurlHandler::MethodType method);

/// The path that inspects the container whose log `path` asks for: "/containers/NAME/json" for
/// "/containers/NAME/logs?...". None when `path` asks for no log.
std::optional<std::string> inspectPath(std::string_view path);

/// Corrects the one status that Podman 4.3.1 gives against the API that it documents.
void correctStatus(std::string_view path, KxCCurlHandler::MethodType method, PodmanReply& reply);

}  // namespace KxNContainer
