// The description of the API for machines: an OpenAPI 3.1 document.
#pragma once

#include <span>
#include <string>

#include "KxTamberWebApi/KxEndpoint.h"
#include "KxTamberWebApi/KxSchema.h"

namespace KxNTamberWebApi {

/// What a handler says about its API. All texts are constants.
struct ApiTexts {
    const char* title;
    const char* description;
    const char* version;
    const char* basePath;  ///< the served one
};

/// The endpoint GET /openapi.json, which the library answers itself: its record is routed like the handler's own.
extern const KxSTamberWebApiEndpoint openApiEndpoint;

/// The endpoint records of a handler, and what it says about bodies; null when it says nothing.
struct DescribedTable {
    const KxSTamberWebApiEndpoint* const* endpoints;
    const KxSApiSchemas* schemas;
};

/// Makes the document, as compact JSON, from the tables of all handlers. `needsToken` tells whether requests must carry
/// the token. Throws std::invalid_argument when a schema's text is not JSON or describes an operation that no endpoint
/// has.
std::string makeOpenApiDocument(const ApiTexts& texts, std::span<const DescribedTable> tables, bool needsToken);

}  // namespace KxNTamberWebApi
