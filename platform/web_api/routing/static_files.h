// The files that are served beside the API: the page.
#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_head.h"
#include "platform/web_api/routing/router.h"

namespace KxNTamberWebApi {

/// Constant data.
struct StaticFile {
    const char* path;             ///< the whole one, from its first "/"
    const char* mediaType;        ///< with its charset
    std::string_view compressed;  ///< the content as gzip (RFC 1952)
    std::string_view tag;         ///< entity tag (RFC 9110, section 8.8.3), with its quotation marks
};

/// Any number of threads may call `answer` at once.
class StaticFiles {
public:
    /// `files` outlives this.
    explicit StaticFiles(std::span<const StaticFile> files);

    /// The answer to a request for one of the files, which may be that it is known already (304), that the client does
    /// not take it compressed (406) or the wrong method (405). Null when the request is for none of them.
    std::optional<Answer> answer(const RequestHead& request) const;

private:
    std::span<const StaticFile> files;
    std::vector<KxSTamberWebApiEndpoint> records;  // the id is the index of the file
    std::optional<Router> router;
};

}  // namespace KxNTamberWebApi
