#include "platform/web_api/access/authorization.h"

#include <algorithm>

#include "platform/common/text.h"
#include "platform/web_api/http/header_parameters.h"

namespace KxNTamberWebApi {

std::optional<std::string_view> parseBearer(std::string_view authorization) {
    authorization = KxNCommon::trim(authorization);
    constexpr std::string_view scheme = "Bearer ";
    if (!equalsIgnoringCase(authorization.substr(0, scheme.size()), scheme)) {
        return std::nullopt;
    }
    const std::string_view token = KxNCommon::trim(authorization.substr(scheme.size()));
    const auto endsToken = [](char c) { return c == ' ' || c == '\t' || c == ','; };
    if (token.empty() || std::any_of(token.begin(), token.end(), endsToken)) {
        return std::nullopt;
    }
    return token;
}

OfferedSubprotocols parseSubprotocols(std::string_view list, std::string_view wanted) {
    constexpr std::string_view tokenPrefix = "bearer.";
    OfferedSubprotocols offered;
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        const std::string_view name = KxNCommon::trim(list.substr(0, comma));
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
        if (!name.empty() && name == wanted) {
            offered.offersWanted = true;
        } else if (!offered.token && name.size() > tokenPrefix.size() &&
                   name.substr(0, tokenPrefix.size()) == tokenPrefix) {
            offered.token = name.substr(tokenPrefix.size());
        }
    }
    return offered;
}

}  // namespace KxNTamberWebApi
