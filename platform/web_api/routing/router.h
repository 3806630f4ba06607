// Finds the endpoint that a request is for and takes its parameters out of the target.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KxTamberWebApi/KxEndpoint.h"

namespace KxNTamberWebApi {

/// What became of one request target. An object that is used for one request after the other stops allocating.
/// Movable: the values that `values` gave out stay where they are.
class RouteMatch {
public:
    enum class Outcome {
        matched,           ///< `endpoint` and `values` hold
        options,           ///< an OPTIONS request for a known path: 204 with `allow`
        badRequest,        ///< 400 with `detail`; `endpoint` is set when the path was known
        notFound,          ///< 404 with `detail`
        methodNotAllowed,  ///< 405 with `detail` and `allow`
    };

    RouteMatch() = default;
    RouteMatch(RouteMatch&&) = default;
    RouteMatch& operator=(RouteMatch&&) = default;

    Outcome outcome = Outcome::notFound;
    const KxSTamberWebApiEndpoint* endpoint = nullptr;
    /// The value of the Allow header. Lives as long as the process.
    std::string_view allow;
    /// Why the request was refused.
    std::string detail;

    /// What the request holds for the endpoint's declared parameters, in the order of their declaration, ended by a
    /// null pointer. Valid until the next request or the end of this object.
    const KxSTamberWebApiParameterValue* const* values() const { return pointers.data(); }

    /// The text of the path parameter "name" for logs, empty when there is none.
    std::string_view name() const;

private:
    friend class Router;
    void clear();
    void refuse(Outcome refusal, std::string why);

    std::vector<char> texts;
    std::vector<KxSTamberWebApiParameterValue> storage;
    std::vector<const KxSTamberWebApiParameterValue*> pointers{nullptr};
};

/// Endpoint tables compiled for matching. Any number of threads may call `route` at once.
class Router {
public:
    /// `endpoints` ends with a null pointer and outlives the router. `basePath` is the path all routes lie below,
    /// `basePathTemplate` the same with its placeholders, whose values become path parameters of every endpoint that
    /// declares them. Throws std::invalid_argument when a record contradicts itself or another one.
    Router(const KxSTamberWebApiEndpoint* const* endpoints, std::string_view basePath,
           std::string_view basePathTemplate);

    /// Adds the endpoints of another table, under the same rules. Not while others call `route`.
    void add(const KxSTamberWebApiEndpoint* const* endpoints);

    /// Looks the raw `target` up for `method` ("GET", …). HEAD finds the endpoint of GET.
    void route(std::string_view method, std::string_view target, RouteMatch& match) const;

private:
    static constexpr std::size_t MAXIMUM_SEGMENTS = 16;
    static constexpr std::size_t MAXIMUM_PARAMETERS = 32;
    static constexpr std::size_t METHOD_CODES = METHOD_PATCH + 1;

    /// Where the value of a declared parameter stands.
    struct Parameter {
        const KxSTamberWebApiParameter* declared;
        std::string_view name;
        std::uint32_t type;
        std::uint32_t location;
        bool isRequired;
        int segment;            ///< of the route; -1 for a query parameter and for one of the base path
        std::string fixedText;  ///< value of a parameter that stands in the base path
    };

    struct Endpoint {
        const KxSTamberWebApiEndpoint* record = nullptr;
        std::vector<Parameter> parameters;
    };

    struct Segment {
        std::string literal;  ///< empty in a placeholder
        bool isPlaceholder;
    };

    /// All endpoints of one route; `endpoints` is indexed by KxEMethod.
    struct Pattern {
        std::vector<Segment> segments;
        std::array<Endpoint, METHOD_CODES> endpoints;
        unsigned methods;  ///< bit 1 << KxEMethod for each that is there
        bool endsWithPlaceholder;
    };

    /// The segments of a request path below the base path, still escaped. Those beyond the array are only counted.
    struct PathSegments {
        std::array<std::string_view, MAXIMUM_SEGMENTS> segments;
        std::size_t count;
        const char* end;
    };

    /// What a request holds for each parameter of an endpoint, still escaped.
    struct RawValues {
        std::array<std::string_view, MAXIMUM_PARAMETERS> texts;
        std::uint32_t present = 0;  ///< bit 1 << index for each that is there
    };

    struct BaseSegment {
        std::string text;
        std::string parameterName;  ///< empty when the template has no placeholder here
    };

    void addEndpoint(const KxSTamberWebApiEndpoint* record);
    Parameter compileParameter(const KxSTamberWebApiParameter* declared, const KxSTamberWebApiEndpoint* record,
                               const std::vector<std::string>& placeholders) const;
    bool splitPath(std::string_view path, PathSegments& split) const;
    static bool matchesPrefix(const Pattern& pattern, const PathSegments& path, std::size_t count);
    static RawValues findValues(const Pattern& pattern, const Endpoint& endpoint, const PathSegments& path,
                                std::string_view query);
    static void decodeValues(const Endpoint& endpoint, const RawValues& values, RouteMatch& match);

    std::vector<BaseSegment> base;
    std::vector<Pattern> patterns;  // the more specific ones first
    unsigned allMethods = 0;
};

}  // namespace KxNTamberWebApi
