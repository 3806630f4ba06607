// The error answers of the API: every status code with its one name.
#pragma once

#include <string>

#include "KxTamberWebApi/KxResponse.h"

namespace KxNCre {

inline constexpr int HTTP_OK = 200;
inline constexpr int HTTP_CREATED = 201;
inline constexpr int HTTP_NO_CONTENT = 204;
inline constexpr int HTTP_NOT_MODIFIED = 304;
inline constexpr int HTTP_BAD_REQUEST = 400;
inline constexpr int HTTP_NOT_FOUND = 404;
inline constexpr int HTTP_CONFLICT = 409;
inline constexpr int HTTP_INTERNAL_SERVER_ERROR = 500;
inline constexpr int HTTP_NOT_IMPLEMENTED = 501;

/// Leaves the status of an empty success answer to the web API server library.
inline constexpr int HTTP_DEFAULT_EMPTY = 0;

/// Missing or malformed input.
inline void answerBadRequest(KxCErrorListPool& pool, KxNTamberWebApi::KxCResponse& response,
                             const std::string& message) {
    response.setError(pool, HTTP_BAD_REQUEST, "BadRequest", message, 1);
}

/// The named thing does not exist.
inline void answerNotFound(KxCErrorListPool& pool, KxNTamberWebApi::KxCResponse& response, const std::string& message) {
    response.setError(pool, HTTP_NOT_FOUND, "NotFound", message, 1);
}

/// The request conflicts with the current state.
inline void answerConflict(KxCErrorListPool& pool, KxNTamberWebApi::KxCResponse& response, const std::string& message) {
    response.setError(pool, HTTP_CONFLICT, "Conflict", message, 1);
}

/// The service refuses, a call of the container runtime failed, or a file could not be written.
inline void answerInternalError(KxCErrorListPool& pool, KxNTamberWebApi::KxCResponse& response,
                                const std::string& message) {
    response.setError(pool, HTTP_INTERNAL_SERVER_ERROR, "InternalServerError", message, 1);
}

/// The operation has no implementation.
inline void answerNotImplemented(KxCErrorListPool& pool, KxNTamberWebApi::KxCResponse& response) {
    response.setError(pool, HTTP_NOT_IMPLEMENTED, "NotImplemented", "Service does not support functionality.", 1);
}

}  // namespace KxNCre
