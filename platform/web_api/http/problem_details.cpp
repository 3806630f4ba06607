#include "platform/web_api/http/problem_details.h"

#include <boost/beast/http/status.hpp>

#include "KxJson.h"

namespace KxNTamberWebApi {

std::string makeProblemDetails(int status, std::string_view title, std::string_view detail) {
    const KxNJson::json problem = {{"type", "about:blank"}, {"title", title}, {"status", status}, {"detail", detail}};
    return problem.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace);
}

std::string findStatusTitle(int status) {
    if (status == 413) {
        return "ContentTooLarge";  // RFC 9110, where the library still has the name of RFC 7231
    }
    std::string title;
    bool startsWord = true;
    for (const char c : boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status))) {
        if (c != ' ') {
            title += startsWord ? c : static_cast<char>(c | 0x20);
        }
        startsWord = c == ' ';
    }
    return title;
}

}  // namespace KxNTamberWebApi
