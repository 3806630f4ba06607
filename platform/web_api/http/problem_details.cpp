#include "platform/web_api/http/problem_details.h"

#include "KxJson.h"

namespace KxNTamberWebApi {

std::string makeProblemDetails(int status, std::string_view title, std::string_view detail) {
    const KxNJson::json problem = {{"type", "about:blank"}, {"title", title}, {"status", status}, {"detail", detail}};
    return problem.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace);
}

std::string_view findStatusTitle(int status) {
    switch (status) {
        case 400:
            return "BadRequest";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "NotFound";
        case 405:
            return "MethodNotAllowed";
        case 408:
            return "RequestTimeout";
        case 409:
            return "Conflict";
        case 411:
            return "LengthRequired";
        case 413:
            return "ContentTooLarge";
        case 414:
            return "UriTooLong";
        case 415:
            return "UnsupportedMediaType";
        case 417:
            return "ExpectationFailed";
        case 426:
            return "UpgradeRequired";
        case 431:
            return "RequestHeaderFieldsTooLarge";
        case 500:
            return "InternalServerError";
        case 501:
            return "NotImplemented";
        case 503:
            return "ServiceUnavailable";
        case 505:
            return "HttpVersionNotSupported";
        default:
            return "Error";
    }
}

}  // namespace KxNTamberWebApi
