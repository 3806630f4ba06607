// Whatever a path or a header line holds, the request to Podman stays one request with the lines that were meant.

#include "fuzz/require.h"
#include "platform/container_runtime/podman/podman_api.h"

using namespace KxNContainer;

void fuzz(std::string_view input) {
    using Method = KxCCurlHandler::MethodType;
    const std::string text(input);

    const std::string target = requestTarget(text);
    KX_REQUIRE(target.starts_with("/v1.41"));
    KX_REQUIRE(std::all_of(target.begin(), target.end(), [](char c) { return c > ' ' && c < 0x7F && c != '#'; }));
    KX_REQUIRE(requestTarget(target) == "/v1.41" + target);  // encoded once is encoded for good

    if (const auto line = parseHeaderLine(text)) {
        KX_REQUIRE(!line->name.empty() && line->name.find_first_of(" \t\r\n:") == std::string_view::npos);
        KX_REQUIRE(line->value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos);
    }
    KX_REQUIRE(timeLimit(text, Method::POST).count() >= 30);
    if (const auto path = inspectPath(text)) {
        KX_REQUIRE(path->starts_with("/containers/") && path->ends_with("/json"));
    }
    PodmanReply reply{text, 500};
    correctStatus("/containers/a", Method::DELETE, reply);
    KX_REQUIRE(reply.body == text && (reply.status == 500 || reply.status == 409));
}
