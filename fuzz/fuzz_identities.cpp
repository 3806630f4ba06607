// The identities file, and times in it.

#include <sys/stat.h>

#include <stdexcept>

#include "fuzz/require.h"
#include "fuzz/scratch_directory.h"
#include "platform/web_api/identities/identity.h"

using namespace KxNTamberWebApi;

void fuzz(std::string_view text) {
    if (const auto time = KxNCommon::parseTime(text)) {
        KX_REQUIRE(KxNCommon::parseTime(KxNCommon::formatTime(*time)) == time || text.size() < 20 || text[0] == '0' ||
                   text[0] == '9');  // an offset leads out of the years that have four digits
    }
    static const ScratchDirectory directory;
    directory.write("identities", std::string(text));
    ::chmod(directory.path("identities").c_str(), 0600);
    try {
        const auto file = readIdentitiesFile(directory.path("identities"));
        for (const Identity& one : file.value().identities) {
            KX_REQUIRE(isIdentityName(one.name) && one.role != ROLE_NONE);
            KX_REQUIRE(one.tokenSha256.has_value() == one.certificateSubject.empty());
        }
    } catch (const std::runtime_error& refusal) {
        KX_REQUIRE(std::string_view(refusal.what()).starts_with("identities file '"));
    }
}
