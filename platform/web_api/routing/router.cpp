#include "platform/web_api/routing/router.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "platform/common/text.h"
#include "platform/web_api/http/request_target.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::uint32_t TYPE_MASK = 0xff;
constexpr std::uint32_t LOCATION_SHIFT = 8;
constexpr std::uint32_t REQUIRED_FLAG = 1u << 16;

constexpr std::array<std::string_view, METHOD_PATCH + 1> METHOD_NAMES = {"", "GET", "POST", "PUT", "DELETE", "PATCH"};

/// The KxEMethod that serves requests of `method`; 0 when there is none.
std::size_t findMethod(std::string_view method) {
    if (method == "HEAD") {
        return METHOD_GET;
    }
    const auto found = std::find(METHOD_NAMES.begin() + 1, METHOD_NAMES.end(), method);
    return found == METHOD_NAMES.end() ? 0 : static_cast<std::size_t>(found - METHOD_NAMES.begin());
}

/// The Allow value for a set of methods; each is made once, since a match only refers to it.
std::string_view allowText(unsigned methods) {
    static const auto& texts = *new auto([] {
        std::array<std::string, 1u << (METHOD_PATCH + 1)> made;
        for (unsigned set = 0; set < made.size(); ++set) {
            for (std::size_t method = METHOD_GET; method < METHOD_NAMES.size(); ++method) {
                if ((set & 1u << method) != 0) {
                    made[set] += std::string(METHOD_NAMES[method]) + (method == METHOD_GET ? ", HEAD, " : ", ");
                }
            }
            made[set] += "OPTIONS";
        }
        return made;
    }());
    return texts[methods];
}

/// Takes the first segment off `path`, which begins with '/'.
std::string_view takeSegment(std::string_view& path) {
    path.remove_prefix(1);
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view segment = path.substr(0, end);
    path.remove_prefix(end);
    return segment;
}

std::vector<std::string> splitTemplate(std::string_view path) {
    std::vector<std::string> segments;
    while (!path.empty()) {
        if (path.front() != '/') {
            throw std::invalid_argument("route '" + std::string(path) + "' does not begin with '/'");
        }
        segments.emplace_back(takeSegment(path));
    }
    return segments;
}

/// The name in "{name}", empty for a literal segment.
std::string placeholderName(const std::string& segment) {
    const bool isPlaceholder = segment.size() > 2 && segment.front() == '{' && segment.back() == '}';
    return isPlaceholder ? segment.substr(1, segment.size() - 2) : std::string();
}

[[noreturn]] void rejectRecord(const KxSTamberWebApiEndpoint* record, const std::string& what) {
    throw std::invalid_argument("endpoint '" + std::string(record->operationId) + "': " + what);
}

}  // namespace

std::string_view RouteMatch::name() const {
    for (const KxSTamberWebApiParameterValue& value : storage) {
        if (value.location == LOCATION_PATH && std::strcmp(value.name, "name") == 0) {
            return value.text;
        }
    }
    return {};
}

void RouteMatch::clear() {
    outcome = Outcome::matched;
    endpoint = nullptr;
    allow = {};
    detail.clear();
    texts.clear();
    storage.clear();
    pointers.assign(1, nullptr);
}

void RouteMatch::refuse(Outcome refusal, std::string why) {
    outcome = refusal;
    detail = std::move(why);
}

Router::Router(const KxSTamberWebApiEndpoint* const* endpoints, std::string_view basePath,
               std::string_view basePathTemplate) {
    const std::vector<std::string> served = splitTemplate(basePath);
    const std::vector<std::string> named = splitTemplate(basePathTemplate);
    if (served.size() != named.size()) {
        throw std::invalid_argument("base path '" + std::string(basePath) + "' does not fit its template '" +
                                    std::string(basePathTemplate) + "'");
    }
    for (std::size_t i = 0; i < served.size(); ++i) {
        base.push_back({served[i], placeholderName(named[i])});
    }
    add(endpoints);
}

void Router::add(const KxSTamberWebApiEndpoint* const* endpoints) {
    for (; *endpoints != nullptr; ++endpoints) {
        addEndpoint(*endpoints);
    }
    // Longer ones first, so that the trailing placeholder of the longest prefix takes the rest of a path; among equally
    // long ones those with a literal where others have a placeholder.
    std::stable_sort(patterns.begin(), patterns.end(), [](const Pattern& left, const Pattern& right) {
        if (left.segments.size() != right.segments.size()) {
            return left.segments.size() > right.segments.size();
        }
        return std::lexicographical_compare(
            left.segments.begin(), left.segments.end(), right.segments.begin(), right.segments.end(),
            [](const Segment& a, const Segment& b) { return a.isPlaceholder < b.isPlaceholder; });
    });
}

void Router::addEndpoint(const KxSTamberWebApiEndpoint* record) {
    std::vector<Segment> segments;
    std::vector<std::string> placeholders;
    for (const std::string& text : splitTemplate(record->route)) {
        placeholders.push_back(placeholderName(text));
        const bool isPlaceholder = !placeholders.back().empty();
        segments.push_back({isPlaceholder ? std::string() : text, isPlaceholder});
    }
    if (segments.empty() || segments.size() >= MAXIMUM_SEGMENTS) {
        rejectRecord(record, "a route has 1 to " + std::to_string(MAXIMUM_SEGMENTS - 1) + " segments");
    }
    if (record->method < METHOD_GET || record->method > METHOD_PATCH) {
        rejectRecord(record, "unknown method " + std::to_string(record->method));
    }

    Endpoint endpoint{record, {}};
    for (const auto* parameter = record->parameters; parameter != nullptr && *parameter != nullptr; ++parameter) {
        endpoint.parameters.push_back(compileParameter(*parameter, record, placeholders));
    }
    if (endpoint.parameters.size() > MAXIMUM_PARAMETERS) {
        rejectRecord(record, "more than " + std::to_string(MAXIMUM_PARAMETERS) + " parameters");
    }

    const auto sameRoute = [&](const Pattern& pattern) {
        return std::equal(pattern.segments.begin(), pattern.segments.end(), segments.begin(), segments.end(),
                          [](const Segment& a, const Segment& b) {
                              return a.isPlaceholder == b.isPlaceholder && a.literal == b.literal;
                          });
    };
    auto pattern = std::find_if(patterns.begin(), patterns.end(), sameRoute);
    if (pattern == patterns.end()) {
        const bool endsWithPlaceholder = segments.back().isPlaceholder;
        pattern = patterns.insert(patterns.end(), {std::move(segments), {}, 0, endsWithPlaceholder});
    }
    Endpoint& place = pattern->endpoints[record->method];
    if (place.record != nullptr) {
        rejectRecord(record, "'" + std::string(place.record->operationId) + "' has the same method and route");
    }
    place = std::move(endpoint);
    pattern->methods |= 1u << record->method;
    allMethods |= 1u << record->method;
}

Router::Parameter Router::compileParameter(const KxSTamberWebApiParameter* declared,
                                           const KxSTamberWebApiEndpoint* record,
                                           const std::vector<std::string>& placeholders) const {
    Parameter parameter{declared,
                        declared->name,
                        declared->flags & TYPE_MASK,
                        (declared->flags >> LOCATION_SHIFT) & TYPE_MASK,
                        (declared->flags & REQUIRED_FLAG) != 0,
                        -1,
                        {}};
    const std::string label = "parameter '" + std::string(parameter.name) + "' ";
    if (parameter.type != TYPE_BOOLEAN && parameter.type != TYPE_INT64 && parameter.type != TYPE_TEXT) {
        rejectRecord(record, label + "has the unknown type " + std::to_string(parameter.type));
    }
    if (parameter.location == LOCATION_QUERY) {
        return parameter;
    }
    if (parameter.location != LOCATION_PATH) {
        rejectRecord(record, label + "has the unknown location " + std::to_string(parameter.location));
    }
    const auto segment = std::find(placeholders.begin(), placeholders.end(), parameter.name);
    if (segment != placeholders.end()) {
        parameter.segment = static_cast<int>(segment - placeholders.begin());
        return parameter;
    }
    const auto inBase = std::find_if(base.begin(), base.end(),
                                     [&](const BaseSegment& part) { return part.parameterName == parameter.name; });
    if (inBase == base.end()) {
        rejectRecord(record, label + "stands neither in the route nor in the base path");
    }
    parameter.fixedText = inBase->text;
    return parameter;
}

bool Router::splitPath(std::string_view path, PathSegments& split) const {
    for (const BaseSegment& part : base) {
        if (path.empty() || !decodedEquals(takeSegment(path), part.text)) {
            return false;
        }
    }
    split.count = 0;
    split.end = path.data() + path.size();
    while (!path.empty()) {
        const std::string_view segment = takeSegment(path);
        if (split.count < MAXIMUM_SEGMENTS) {
            split.segments[split.count] = segment;
        }
        ++split.count;
    }
    return true;
}

bool Router::matchesPrefix(const Pattern& pattern, const PathSegments& path, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const Segment& segment = pattern.segments[i];
        if (!segment.isPlaceholder && !decodedEquals(path.segments[i], segment.literal)) {
            return false;
        }
    }
    return true;
}

void Router::route(std::string_view method, std::string_view target, RouteMatch& match) const {
    using Outcome = RouteMatch::Outcome;
    match.clear();
    const std::optional<RequestTarget> split = splitRequestTarget(target);
    if (!split) {
        return match.refuse(Outcome::badRequest, "The request target is malformed");
    }
    if (!hasValidEscapes(split->path) || !hasValidEscapes(split->query)) {
        return match.refuse(Outcome::badRequest, "The request target holds a malformed percent escape");
    }
    const bool isOptions = method == "OPTIONS";
    if (split->path == "*" && isOptions) {
        match.outcome = Outcome::options;
        match.allow = allowText(allMethods);
        return;
    }
    PathSegments path;
    if (split->path == "*" || !splitPath(split->path, path)) {
        return match.refuse(Outcome::notFound, "No such path");
    }

    const std::size_t wanted = findMethod(method);
    const Pattern* chosen = nullptr;
    unsigned methods = 0;
    const auto consider = [&](const Pattern& pattern) {
        methods |= pattern.methods;
        if (chosen == nullptr && (pattern.methods & 1u << wanted) != 0) {
            chosen = &pattern;
        }
    };
    for (const Pattern& pattern : patterns) {
        if (pattern.segments.size() == path.count && matchesPrefix(pattern, path, path.count)) {
            consider(pattern);
        }
    }
    if (methods != 0 && chosen == nullptr && !isOptions) {
        match.allow = allowText(methods);
        return match.refuse(Outcome::methodNotAllowed,
                            "Method " + std::string(method) + " is not allowed here, only " + std::string(match.allow));
    }
    if (methods == 0) {
        for (const Pattern& pattern : patterns) {
            const std::size_t size = pattern.segments.size();
            if (pattern.endsWithPlaceholder && size < path.count && matchesPrefix(pattern, path, size - 1)) {
                consider(pattern);
            }
        }
    }
    if (isOptions && methods != 0) {
        match.outcome = Outcome::options;
        match.allow = allowText(methods);
        return;
    }
    if (chosen == nullptr) {
        return match.refuse(Outcome::notFound, "No such path");
    }
    const Endpoint& endpoint = chosen->endpoints[wanted];
    match.endpoint = endpoint.record;
    decodeValues(endpoint, findValues(*chosen, endpoint, path, split->query), match);
}

namespace {

/// Appends the value of one parameter; what forbids it, or null when nothing does.
const char* readValue(std::string_view decoded, KxSTamberWebApiParameterValue& value) {
    if (value.location == LOCATION_PATH) {
        if (const char* fault = findPathParameterFault(decoded)) {
            return fault;
        }
    } else if (decoded.find('\0') != std::string_view::npos) {
        return "holds a control character";  // the text that the handler gets would end there
    }
    if (value.type == TYPE_BOOLEAN) {
        const std::optional<bool> boolean = parseBoolean(decoded);
        value.boolean = boolean.value_or(false);
        return boolean ? nullptr : "must be true, false, 1 or 0";
    }
    if (value.type == TYPE_INT64) {
        const std::optional<std::int64_t> integer = KxNCommon::parseNumber<std::int64_t>(decoded);
        value.integer = integer.value_or(0);
        return integer ? nullptr : "must be a decimal signed 64-bit number";
    }
    return nullptr;
}

}  // namespace

Router::RawValues Router::findValues(const Pattern& pattern, const Endpoint& endpoint, const PathSegments& path,
                                     std::string_view query) {
    const std::vector<Parameter>& parameters = endpoint.parameters;
    RawValues values;
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        if (parameters[i].segment >= 0) {
            const auto segment = static_cast<std::size_t>(parameters[i].segment);
            const char* const begin = path.segments[segment].data();
            const bool takesRest = segment + 1 == pattern.segments.size();
            values.texts[i] = takesRest ? std::string_view(begin, static_cast<std::size_t>(path.end - begin))
                                        : path.segments[segment];
            values.present |= 1u << i;
        }
    }
    while (!query.empty()) {
        const std::size_t end = std::min(query.find('&'), query.size());
        const std::string_view pair = query.substr(0, end);
        query.remove_prefix(std::min(end + 1, query.size()));
        const std::size_t nameEnd = std::min(pair.find('='), pair.size());
        for (std::size_t i = 0; i < parameters.size(); ++i) {
            if (parameters[i].location == LOCATION_QUERY && (values.present & 1u << i) == 0 &&
                decodedEquals(pair.substr(0, nameEnd), parameters[i].name)) {
                values.texts[i] = pair.substr(std::min(nameEnd + 1, pair.size()));
                values.present |= 1u << i;
            }
        }
    }
    return values;
}

void Router::decodeValues(const Endpoint& endpoint, const RawValues& values, RouteMatch& match) {
    const std::vector<Parameter>& parameters = endpoint.parameters;
    // Room for all texts at once, so that none of them moves.
    std::size_t room = 0;
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        room += values.texts[i].size() + parameters[i].fixedText.size() + 1;
    }
    match.texts.reserve(room);
    match.storage.reserve(parameters.size());

    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const Parameter& parameter = parameters[i];
        const std::size_t begin = match.texts.size();
        if ((values.present & 1u << i) != 0) {
            appendDecoded(values.texts[i], match.texts);
        } else if (!parameter.fixedText.empty()) {
            match.texts.insert(match.texts.end(), parameter.fixedText.begin(), parameter.fixedText.end());
        } else if (parameter.isRequired) {
            return match.refuse(RouteMatch::Outcome::badRequest,
                                "Query parameter '" + std::string(parameter.name) + "' is missing");
        } else {
            continue;
        }
        const std::string_view decoded(match.texts.data() + begin, match.texts.size() - begin);
        match.texts.push_back('\0');

        KxSTamberWebApiParameterValue value{
            parameter.declared->name, parameter.location, parameter.type, decoded.data(), false, 0};
        if (const char* fault = readValue(decoded, value)) {
            return match.refuse(RouteMatch::Outcome::badRequest,
                                (parameter.location == LOCATION_PATH ? "Path parameter '" : "Query parameter '") +
                                    std::string(parameter.name) + "' " + fault);
        }
        match.storage.push_back(value);
        match.pointers.back() = &match.storage.back();
        match.pointers.push_back(nullptr);
    }
}

}  // namespace KxNTamberWebApi
