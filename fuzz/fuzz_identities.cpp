// The identities file, and times in it.

#include <stdexcept>

#include "KxJson.h"
#include "KxJsonText.h"
#include "fuzz/require.h"
#include "platform/web_api/identities/identity.h"

using namespace KxNTamberWebApi;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto time = KxNCommon::parseTime(text)) {
        KX_REQUIRE(KxNCommon::parseTime(KxNCommon::formatTime(*time)) == time || text.size() < 20 || text[0] == '0' ||
                   text[0] == '9');  // an offset leads out of the years that have four digits
    }
    KxNJson::json document;
    std::string reason;
    if (!KxNJson::parse(text, document, reason)) {
        return 0;
    }
    try {
        for (const Identity& one : parseIdentities(document)) {
            KX_REQUIRE(isIdentityName(one.name) && one.role != ROLE_NONE);
            KX_REQUIRE(one.tokenSha256.has_value() == one.certificateSubject.empty());
        }
    } catch (const std::invalid_argument&) {  // what it says is the operator's
    }
    return 0;
}
