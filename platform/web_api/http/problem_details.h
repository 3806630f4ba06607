// Error answers: RFC 9457 problem details.
#pragma once

#include <string>
#include <string_view>

namespace KxNTamberWebApi {

inline constexpr std::string_view PROBLEM_MEDIA_TYPE = "application/problem+json";

/// {"type":"about:blank","title":…,"status":…,"detail":…}, in this order. Invalid UTF-8 is replaced.
std::string makeProblemDetails(int status, std::string_view title, std::string_view detail);

/// The HTTP reason phrase in upper camel case, which is the title of the library's own refusals: 404 gives "NotFound".
std::string findStatusTitle(int status);

}  // namespace KxNTamberWebApi
