// Whatever a Content-Disposition or Content-Type field holds, no path and no control character comes out of it.

#include "fuzz/require.h"
#include "platform/web_api/http/content_disposition.h"

using namespace KxNTamberWebApi;

void fuzz(std::string_view value) {
    std::string error;
    if (const auto disposition = parseContentDisposition(value, error)) {
        KX_REQUIRE(!disposition->type.empty() && error.empty());
        KX_REQUIRE(!hasControl(disposition->fileName) && !hasControl(disposition->fieldName));
        KX_REQUIRE(disposition->fileName.find_first_of("/\\") == std::string::npos);
        KX_REQUIRE(disposition->fileName != "." && disposition->fileName != "..");
    } else {
        KX_REQUIRE(!error.empty());
    }
    if (const auto type = parseContentType(value)) {
        KX_REQUIRE(type->mediaType.find('/') != std::string::npos && !hasControl(type->mediaType));
        KX_REQUIRE(type->boundary.size() <= 70 && !hasControl(type->boundary));
    }
}
