#include "platform/web_api/routing/static_files.h"

#include <algorithm>
#include <string>

#include "platform/common/text.h"
#include "platform/web_api/http/header_parameters.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;

namespace {

/// Nothing but the page's own files and this server, nothing inline, and no text that becomes markup. The page is asked
/// for anew each time, which its tag makes cheap, so that it always fits the service.
constexpr std::string_view FIELDS =
    "Cache-Control: no-cache\r\n"
    "Vary: Accept-Encoding\r\n"
    "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'\r\n"
    "Cross-Origin-Opener-Policy: same-origin\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\n";

/// Whether an Accept-Encoding value (RFC 9110, section 12.5.3) lets gzip through.
bool acceptsGzip(std::string_view list) {
    bool acceptsAny = false;
    while (!list.empty()) {
        const std::string_view coding = list.substr(0, list.find(','));
        list.remove_prefix(std::min(coding.size() + 1, list.size()));
        const std::string_view name = KxNCommon::trim(coding.substr(0, coding.find(';')));
        const std::string_view weight = KxNCommon::trim(coding.substr(std::min(coding.find('=') + 1, coding.size())));
        const bool isRefused = coding.find(';') != coding.npos && weight.find_first_not_of("0.") == weight.npos;
        if (equalsIgnoringCase(name, "gzip") || equalsIgnoringCase(name, "x-gzip")) {
            return !isRefused;
        }
        acceptsAny = acceptsAny || (name == "*" && !isRefused);
    }
    return acceptsAny;
}

/// Whether an If-None-Match value (RFC 9110, section 13.1.2) holds the tag.
bool isKnown(std::string_view list, std::string_view tag) {
    return KxNCommon::trim(list) == "*" || list.find(tag) != list.npos;
}

}  // namespace

StaticFiles::StaticFiles(std::span<const StaticFile> served) : files(served) {
    records.reserve(files.size());
    std::vector<const KxSTamberWebApiEndpoint*> table;
    for (const StaticFile& file : files) {
        records.push_back({records.size(), file.path, METHOD_GET, file.path, nullptr, nullptr, 0, 0});
        table.push_back(&records.back());
    }
    table.push_back(nullptr);
    router.emplace(table.data(), "", "");
}

std::optional<Answer> StaticFiles::answer(const RequestHead& request) const {
    RouteMatch match;
    router->route(request.method_string(), request.target(), match);
    switch (match.outcome) {
        case RouteMatch::Outcome::matched:
            break;
        case RouteMatch::Outcome::options:
            return Answer{204, {}, {}, match.allow};
        case RouteMatch::Outcome::methodNotAllowed: {
            Answer refusal = makeRefusal(405, match.detail);
            refusal.allow = match.allow;
            return refusal;
        }
        default:
            return std::nullopt;
    }
    const StaticFile& file = files[match.endpoint->id];
    if (!acceptsGzip(joinFields(request, field::accept_encoding))) {
        return makeRefusal(406, "The page is kept compressed: the request must accept the encoding gzip");
    }
    const std::string tag = "ETag: " + std::string(file.tag) + "\r\n";
    if (isKnown(joinFields(request, field::if_none_match), file.tag)) {
        return Answer{304, {}, {}, {}, tag + std::string(FIELDS)};
    }
    return Answer{200,
                  std::string(file.compressed),
                  file.mediaType,
                  {},
                  tag + "Content-Encoding: gzip\r\n" + std::string(FIELDS)};
}

}  // namespace KxNTamberWebApi
