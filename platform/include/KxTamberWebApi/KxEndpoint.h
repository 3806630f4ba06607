// The records with which a handler describes its endpoints to the web API server library. Constant data.
#pragma once

#include <cstdint>

/// One declared parameter of an endpoint.
struct KxSTamberWebApiParameter {
    const char* name;
    /// Bits 0-7 the type, bits 8-15 the location (KxNTamberWebApi::KxEParameterType and KxEParameterLocation),
    /// bit 16 set when the parameter is required.
    std::uint32_t flags;
};

/// One HTTP endpoint.
struct KxSTamberWebApiEndpoint {
    std::uint64_t id;         ///< from 1; unique within the handler
    const char* operationId;  ///< lower camel case
    std::uint64_t method;     ///< KxNTamberWebApi::KxEMethod
    const char* route;        ///< below the base path; "{name}" takes one segment
    /// Two bytes, the first a KxNTamberWebApi::KxEBodyKind, the second 1; null when the endpoint takes no body.
    const std::uint8_t* bodyKinds;
    const KxSTamberWebApiParameter* const* parameters;  ///< ends with a null pointer
    std::uint64_t reserved;                             ///< 0
    std::uint64_t isUpload;                             ///< 1 when the body goes to handleUploadChunk, else 0
};

/// The value that a request holds for one declared parameter. Only parameters that the request holds have one.
struct KxSTamberWebApiParameterValue {
    const char* name;
    std::uint32_t location;
    std::uint32_t type;
    const char* text;      ///< decoded, NUL-terminated
    bool boolean;          ///< valid when the type is boolean
    std::int64_t integer;  ///< valid when the type is integer
};

namespace KxNTamberWebApi {

enum KxEMethod : std::uint64_t { METHOD_GET = 1, METHOD_POST = 2, METHOD_PUT = 3, METHOD_DELETE = 4, METHOD_PATCH = 5 };
enum KxEParameterType : std::uint32_t { TYPE_BOOLEAN = 1, TYPE_INT64 = 3, TYPE_TEXT = 4 };
enum KxEParameterLocation : std::uint32_t { LOCATION_PATH = 1, LOCATION_QUERY = 2 };
enum KxEBodyKind : std::uint8_t { BODY_JSON = 5, BODY_UPLOAD = 6 };

}  // namespace KxNTamberWebApi
