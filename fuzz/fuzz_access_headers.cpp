// The fields that decide who gets in: Authorization, Sec-WebSocket-Protocol, Host and Origin; and the audit line.

#include "fuzz/require.h"
#include "platform/web_api/access/audit.h"
#include "platform/web_api/access/authorization.h"
#include "platform/web_api/access/loopback.h"

using namespace KxNTamberWebApi;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto token = parseBearer(text)) {
        KX_REQUIRE(!token->empty() && token->find_first_of(" \t,") == std::string_view::npos);
    }
    if (const auto token = parseSubprotocols(text).token) {
        KX_REQUIRE(!token->empty() && token->find(',') == std::string_view::npos);
    }
    const std::size_t cut = text.find('\n');
    const std::string_view origin = text.substr(0, cut);
    const std::string_view host = cut == std::string_view::npos ? text : text.substr(cut + 1);
    if (isSameOrigin(origin, host)) {
        KX_REQUIRE(isLoopbackHost(host) == isLoopbackHost(origin.substr(origin.find("://") + 3)));
    }
    isLoopbackAddress(text);

    const std::string line = makeAuditLine({"127.0.0.1", text, "viewer", "GET", "/a/{name}", text, 401, 3});
    KX_REQUIRE(std::all_of(line.begin(), line.end(), [](char c) { return c >= 0x20 && c < 0x7f; }));
    KX_REQUIRE(line.size() < 3000);
    return 0;
}
