// The fields that decide who gets in: Authorization, Sec-WebSocket-Protocol, Host and Origin; and what the audit tells
// of them.

#include "fuzz/require.h"
#include "fuzz/scratch_directory.h"
#include "platform/web_api/access/authorization.h"
#include "platform/web_api/access/loopback.h"
#include "platform/web_api/audit/audit_chain.h"
#include "platform/web_api/audit/audit_record.h"

using namespace KxNTamberWebApi;

/// The text as the two files of a record, cut at an empty line: in whatever order they are named, the same is found.
static void verifyFiles(const std::string& text) {
    static const ScratchDirectory directory;
    const std::size_t cut = std::min(text.find("\n\n"), text.size());
    directory.write("first", text.substr(0, cut + 1));
    directory.write("second", text.substr(std::min(cut + 2, text.size())));
    const AuditVerdict found = verifyAuditFiles({directory.path("first"), directory.path("second")});
    KX_REQUIRE(found.entries == 0 || found.last - found.first + 1 == found.entries);
    if (findSeq(text) && cut < text.size() && findSeq(text.substr(cut + 2))) {
        const AuditVerdict again = verifyAuditFiles({directory.path("second"), directory.path("first")});
        KX_REQUIRE(findSeq(text) == findSeq(text.substr(cut + 2)) || again.fault == found.fault);
    }
}

void fuzz(std::string_view text) {
    if (const auto token = parseBearer(text)) {
        KX_REQUIRE(!token->empty() && token->find_first_of(" \t,") == std::string_view::npos);
    }
    if (const auto token = parseSubprotocols(text, "kx.logs.v1").token) {
        KX_REQUIRE(!token->empty() && token->find(',') == std::string_view::npos);
    }
    const std::size_t cut = text.find('\n');
    const std::string_view origin = text.substr(0, cut);
    const std::string_view host = cut == std::string_view::npos ? text : text.substr(cut + 1);
    if (isSameOrigin(origin, host)) {
        KX_REQUIRE(isLoopbackHost(host) == isLoopbackHost(origin.substr(origin.find("://") + 3)));
    }
    isLoopbackAddress(text);

    const std::string value(text);
    const AuditRecord record = {"127.0.0.1", value, "viewer", "GET", "/a/{name}", value, 401, 3, text.size() % 2, {}};
    const std::string line = makeAuditLine(record);
    KX_REQUIRE(std::all_of(line.begin(), line.end(), [](char c) { return c >= 0x20 && c < 0x7f; }));
    KX_REQUIRE(line.size() < 3000);
    const std::string entry = makeAuditEntry(record, 7, std::string(64, 'a'));
    KX_REQUIRE(entry.find('\n') == std::string::npos && findPlace(entry)->seq == 7);
    if (findPlace(text.substr(0, cut))) {
        verifyFiles(value);
    }
}
