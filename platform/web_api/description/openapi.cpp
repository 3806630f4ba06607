#include "platform/web_api/description/openapi.h"

#include <array>
#include <cctype>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>

#include "KxJson.h"
#include "platform/web_api/access/roles.h"
#include "platform/web_api/http/problem_details.h"

namespace KxNTamberWebApi {

namespace {

using KxNJson::json;

/// An answer that the library gives by itself, and to which operations.
struct LibraryAnswer {
    int status;
    enum : unsigned {
        always = 1,
        withToken = 2,
        withBody = 4,
        withJsonBody = 8,
        withWebSocket = 16,
        withUpload = 32
    } when;
    const char* description;
};

constexpr std::array LIBRARY_ANSWERS = {
    LibraryAnswer{400, LibraryAnswer::always, "The request is malformed: see the detail"},
    LibraryAnswer{401, LibraryAnswer::withToken, "Neither a valid token nor a client certificate was presented"},
    LibraryAnswer{403, LibraryAnswer::always,
                  "The role does not suffice, or the request comes from a foreign page or names a foreign host"},
    LibraryAnswer{408, LibraryAnswer::withBody, "The body made no progress for too long, or too little"},
    LibraryAnswer{413, LibraryAnswer::withBody, "The body is larger than the server takes"},
    LibraryAnswer{415, LibraryAnswer::withJsonBody, "The body is not application/json"},
    LibraryAnswer{429, LibraryAnswer::withToken, "Too many wrong tokens came from the client's address"},
    LibraryAnswer{426, LibraryAnswer::withWebSocket, "The request does not ask for a WebSocket"},
    LibraryAnswer{500, LibraryAnswer::always, "The operation failed: see the detail"},
    LibraryAnswer{503, LibraryAnswer::always, "The service is stopping or has no capacity left"},
    LibraryAnswer{507, LibraryAnswer::withUpload, "The file does not fit where it is to be stored"},
};

constexpr std::array<const char*, METHOD_PATCH + 1> METHOD_KEYS = {"", "get", "post", "put", "delete", "patch"};

constexpr KxSAnswerSchema OPEN_API_ANSWERS[] = {{200, "This document", R"({"type":"object"})", nullptr},
                                                {0, nullptr, nullptr, nullptr}};
constexpr KxSOperationSchema OPEN_API_SCHEMA = {"getOpenApiDocument", "Describe this API", nullptr, nullptr,
                                                OPEN_API_ANSWERS};

json parseText(const char* text, const std::string& of) {
    try {
        return json::parse(text);
    } catch (const json::exception& failure) {
        throw std::invalid_argument("the schema text of " + of + " is not JSON: " + failure.what());
    }
}

/// "listComposeFiles" gives "List compose files".
std::string makeSummary(std::string_view operationId) {
    std::string summary;
    for (const char c : operationId) {
        const auto byte = static_cast<unsigned char>(c);
        if (summary.empty()) {
            summary += static_cast<char>(std::toupper(byte));
        } else if (std::isupper(byte) != 0) {
            summary += ' ';
            summary += static_cast<char>(std::tolower(byte));
        } else {
            summary += c;
        }
    }
    return summary;
}

std::string makeTag(std::string_view route) {
    route.remove_prefix(1);
    return std::string(route.substr(0, route.find('/')));
}

json makeParameter(const KxSTamberWebApiParameter& declared, const KxSParameterText* texts) {
    const bool isInPath = (declared.flags >> 8 & 0xff) == LOCATION_PATH;
    json parameter = {{"name", declared.name}, {"in", isInPath ? "path" : "query"}};
    for (; texts != nullptr && texts->name != nullptr; ++texts) {
        if (std::string_view(texts->name) == declared.name) {
            parameter["description"] = texts->description;
        }
    }
    if (isInPath || (declared.flags >> 16 & 1) != 0) {
        parameter["required"] = true;
    }
    switch (declared.flags & 0xff) {
        case TYPE_BOOLEAN:
            parameter["schema"] = {{"type", "boolean"}};
            break;
        case TYPE_INT64:
            parameter["schema"] = {{"type", "integer"}, {"format", "int64"}};
            break;
        default:
            parameter["schema"] = {{"type", "string"}};
    }
    return parameter;
}

/// The name of a file that is sent without a form around it.
constexpr const char* FILE_NAME_PARAMETER = R"({"name": "Content-Disposition", "in": "header",
    "description": "Names the file of an upload that is not a form", "schema": {"type": "string"},
    "example": "attachment; filename=\"file\""})";

constexpr const char* UPLOAD_BODY =
    R"({"description": "The file: in a form, or as it is", "required": true, "content": {
    "multipart/form-data": {"schema": {"type": "object",
        "properties": {"file": {"type": "string", "format": "binary"}}, "required": ["file"]}},
    "application/octet-stream": {"schema": {"type": "string", "format": "binary"}}}})";

constexpr const char* PROBLEM_SCHEMA =
    R"({"type": "object", "description": "Problem details as RFC 9457 describes them",
    "required": ["type", "title", "status", "detail"], "properties": {
        "type": {"type": "string"},
        "title": {"type": "string", "description": "Name of the status"},
        "status": {"type": "integer", "minimum": 400, "maximum": 599},
        "detail": {"type": "string", "description": "What happened, for people"}}})";

constexpr const char* SECURITY_SCHEMES = R"({
    "bearer": {"type": "http", "scheme": "bearer", "description": "The token in the server's token file"},
    "clientCertificate": {"type": "mutualTLS",
        "description": "A certificate signed by the CA that the server was given"}})";

json makeJsonBody(const char* schema, const std::string& operationId) {
    json content = json::object();
    if (schema != nullptr) {
        content["schema"] = parseText(schema, operationId);
    }
    return {{"required", true}, {"content", {{"application/json", content}}}};
}

json makeProblemAnswer(const char* description) {
    return {{"description", description},
            {"content", {{PROBLEM_MEDIA_TYPE, {{"schema", {{"$ref", "#/components/schemas/Problem"}}}}}}}};
}

json makeAnswer(const KxSAnswerSchema& answer, const std::string& operationId) {
    json made =
        answer.status >= 400 ? makeProblemAnswer(answer.description) : json{{"description", answer.description}};
    if (answer.schema != nullptr) {
        json& content = made["content"][answer.mediaType];
        content["schema"] = parseText(answer.schema, operationId);
        if (answer.example != nullptr) {
            content["example"] = parseText(answer.example, operationId);
        }
    }
    return made;
}

const KxSOperationSchema* findSchema(const KxSApiSchemas* schemas, std::string_view operationId) {
    const KxSOperationSchema* schema = schemas == nullptr ? nullptr : schemas->operations;
    for (; schema != nullptr && schema->operationId != nullptr; ++schema) {
        if (schema->operationId == operationId) {
            return schema;
        }
    }
    return nullptr;
}

/// The answers by status, those of the library as references. Notes in `shared` which of these there are.
json makeAnswers(const KxSOperationSchema* schema, const std::string& operationId, bool needsToken,
                 std::uint8_t bodyKind, std::set<int>& shared) {
    std::map<int, json> answers;
    for (const auto* answer = schema == nullptr ? nullptr : schema->answers; answer != nullptr && answer->status != 0;
         ++answer) {
        answers[answer->status] = makeAnswer(*answer, operationId);
    }
    const unsigned kinds = LibraryAnswer::always | (needsToken ? LibraryAnswer::withToken : 0U) |
                           (bodyKind != 0 ? LibraryAnswer::withBody : 0U) |
                           (bodyKind == BODY_JSON ? LibraryAnswer::withJsonBody : 0U) |
                           (bodyKind == BODY_UPLOAD ? LibraryAnswer::withUpload : 0U) |
                           (answers.count(101) != 0 ? LibraryAnswer::withWebSocket : 0U);
    const bool isDescribed = !answers.empty();
    for (const LibraryAnswer& answer : LIBRARY_ANSWERS) {
        const json reference = {{"$ref", "#/components/responses/" + findStatusTitle(answer.status)}};
        if ((answer.when & kinds) != 0 && answers.emplace(answer.status, reference).second) {
            shared.insert(answer.status);
        }
    }
    json made = json::object();
    if (!isDescribed) {
        made["2XX"] = {{"description", "Done"}};
    }
    for (const auto& [status, answer] : answers) {
        made[std::to_string(status)] = answer;
    }
    return made;
}

json makeOperation(const KxSTamberWebApiEndpoint& endpoint, const KxSOperationSchema* schema, bool needsToken,
                   std::set<int>& shared) {
    const std::string operationId = endpoint.operationId;
    const std::string route = endpoint.route;
    const std::uint8_t bodyKind = endpoint.bodyKinds == nullptr ? std::uint8_t{0} : *endpoint.bodyKinds;
    json operation = {{"operationId", operationId},
                      {"summary", schema == nullptr ? makeSummary(operationId) : std::string(schema->summary)},
                      {"tags", {makeTag(route)}},
                      {"x-kx-role", roleName(requiredRole(operationId))}};
    if (needsToken && requiredRole(operationId) == ROLE_NONE) {
        operation["security"] = {json::object(), {{"bearer", json::array()}}, {{"clientCertificate", json::array()}}};
    }

    json parameters = json::array();
    for (const auto* declared = endpoint.parameters; declared != nullptr && *declared != nullptr; ++declared) {
        const bool isInPath = ((*declared)->flags >> 8 & 0xff) == LOCATION_PATH;
        const bool isInBasePath =
            isInPath && route.find("{" + std::string((*declared)->name) + "}") == std::string::npos;
        if (!isInBasePath) {
            parameters.push_back(makeParameter(**declared, schema == nullptr ? nullptr : schema->parameters));
        }
    }
    if (bodyKind == BODY_UPLOAD) {
        parameters.push_back(json::parse(FILE_NAME_PARAMETER));
    }
    if (!parameters.empty()) {
        operation["parameters"] = std::move(parameters);
    }
    if (bodyKind == BODY_UPLOAD) {
        operation["requestBody"] = json::parse(UPLOAD_BODY);
    } else if (bodyKind == BODY_JSON) {
        operation["requestBody"] = makeJsonBody(schema == nullptr ? nullptr : schema->requestSchema, operationId);
    }
    operation["responses"] = makeAnswers(schema, operationId, needsToken, bodyKind, shared);
    return operation;
}

json makeComponents(std::span<const DescribedTable> tables, bool needsToken, const std::set<int>& shared) {
    json components;
    json& named = components["schemas"];
    named["Problem"] = json::parse(PROBLEM_SCHEMA);
    for (const DescribedTable& table : tables) {
        for (const auto* schema = table.schemas == nullptr ? nullptr : table.schemas->named;
             schema != nullptr && schema->name != nullptr; ++schema) {
            named[schema->name] = parseText(schema->schema, schema->name);
        }
    }
    json& responses = components["responses"];
    for (const LibraryAnswer& answer : LIBRARY_ANSWERS) {
        if (shared.count(answer.status) != 0) {
            responses[findStatusTitle(answer.status)] = makeProblemAnswer(answer.description);
        }
    }
    if (needsToken) {
        components["securitySchemes"] = json::parse(SECURITY_SCHEMES);
    }
    return components;
}

void checkSchemas(const DescribedTable& table) {
    std::set<std::string_view> known;
    for (const auto* endpoint = table.endpoints; *endpoint != nullptr; ++endpoint) {
        known.insert((*endpoint)->operationId);
    }
    const KxSOperationSchema* schema = table.schemas == nullptr ? nullptr : table.schemas->operations;
    for (; schema != nullptr && schema->operationId != nullptr; ++schema) {
        if (known.count(schema->operationId) == 0) {
            throw std::invalid_argument("no endpoint has the operation '" + std::string(schema->operationId) +
                                        "' that a schema describes");
        }
    }
}

}  // namespace

const KxSTamberWebApiEndpoint openApiEndpoint = {
    0, OPEN_API_SCHEMA.operationId, METHOD_GET, "/openapi.json", nullptr, nullptr, 0, 0};

std::string makeOpenApiDocument(const ApiTexts& texts, std::span<const DescribedTable> tables, bool needsToken) {
    json paths = json::object();
    json tags = json::array();
    std::set<std::string> knownTags;
    std::set<int> shared;
    const auto addOperation = [&](const KxSTamberWebApiEndpoint& endpoint, const KxSOperationSchema* schema) {
        paths[endpoint.route][METHOD_KEYS.at(endpoint.method)] = makeOperation(endpoint, schema, needsToken, shared);
        const std::string tag = makeTag(endpoint.route);
        if (knownTags.insert(tag).second) {
            tags.push_back({{"name", tag}, {"description", "What lies below /" + tag}});
        }
    };
    for (const DescribedTable& table : tables) {
        for (const auto* endpoint = table.endpoints; *endpoint != nullptr; ++endpoint) {
            addOperation(**endpoint, findSchema(table.schemas, (*endpoint)->operationId));
        }
        checkSchemas(table);
    }
    addOperation(openApiEndpoint, &OPEN_API_SCHEMA);

    json document = {{"openapi", "3.1.0"},
                     {"info", {{"title", texts.title}, {"description", texts.description}, {"version", texts.version}}},
                     {"servers", {{{"url", texts.basePath}}}},
                     {"security", json::array()},
                     {"tags", std::move(tags)},
                     {"paths", std::move(paths)},
                     {"components", makeComponents(tables, needsToken, shared)}};
    if (needsToken) {
        document["security"] = {{{"bearer", json::array()}}, {{"clientCertificate", json::array()}}};
    }
    return document.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace);
}

}  // namespace KxNTamberWebApi
