// Records with which a handler describes the bodies of its operations, for the OpenAPI document. Constant data.
#pragma once

namespace KxNTamberWebApi {

/// A schema that others refer to as {"$ref": "#/components/schemas/NAME"}.
struct KxSNamedSchema {
    const char* name;    ///< upper camel case
    const char* schema;  ///< JSON Schema (draft 2020-12) as JSON text
};

/// What a parameter means.
struct KxSParameterText {
    const char* name;
    const char* description;
};

/// One answer that an operation gives. What the library itself answers (401, 404 of an unknown path, 413, …) need not
/// be listed; an answer listed here replaces the library's text for that status.
struct KxSAnswerSchema {
    int status;
    const char* description;
    /// JSON text; null when the answer has no body. Errors have the problem details by themselves, and this beside
    /// them.
    const char* schema;
    const char* example;                         ///< JSON text, or null
    const char* mediaType = "application/json";  ///< of what the schema describes
};

/// What is to be known about one operation beyond its endpoint record.
struct KxSOperationSchema {
    const char* operationId;
    const char* summary;                 ///< one line
    const char* requestSchema;           ///< JSON text of the schema of a JSON body; null when it takes none
    const KxSParameterText* parameters;  ///< ended by a null name; null when there is nothing to say
    const KxSAnswerSchema* answers;      ///< ended by status 0
};

/// All of it.
struct KxSApiSchemas {
    const KxSNamedSchema* named;           ///< ended by a null name; may be null
    const KxSOperationSchema* operations;  ///< ended by a null operationId
};

}  // namespace KxNTamberWebApi
