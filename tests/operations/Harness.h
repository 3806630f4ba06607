// Calls operations the way the web API server library does, and compares what they did with the rows of a table.
#pragma once

#include <cstdint>
#include <optional>

#include "KxJson.h"
#include "api/endpoints.h"
#include "handler/KxCContainerHandler.h"
#include "tests/doubles/World.h"
#include "tests/support.h"

namespace KxNTests {

using KxNDoubles::world;
using KxNJson::json;

/// "enabled?" and "status?" are the questions of the guard, here of one that passes.
inline const std::string GUARD = "enabled?\nstatus?\n";

struct Row {
    std::string request;  ///< what follows the part that the rows share
    std::string podman;   ///< Podman's status and, behind a space, body; empty for 200 without a body
    std::string journal;  ///< without its last newline; "^" stands for the part that the rows share
};

/// Each test begins with a new world, a new handler, and none of the managed directories.
class Operations : public testing::Test {
protected:
    Operations();

    /// Makes a request and returns its journal without the last newline. The request is an operation's id and what it
    /// is given: "id;parameter=value;body=JSON". An id with SetWebSocket behind it is the second phase of a stream. An
    /// answer must be one that the API's description names.
    std::string call(const std::string& request);

    void check(const std::string& request, const std::string& begun, const std::vector<Row>& rows);

    /// Hands over one chunk; 0 or -1.
    std::int32_t chunk(const std::string& operation, const char* fileName, std::string_view data,
                       std::uint64_t offset = 0);

    std::optional<KxCContainerHandler> handler;
    KxNTamberWebApi::KxCHandler* served = nullptr;  ///< that operations are called of
    KxNTamberWebApi::KxERole role = KxNTamberWebApi::ROLE_NONE;
    KxCErrorListPool pool;
    int nothing = 0;  ///< the double of a response has no state
    KxNTamberWebApi::KxCResponse response{reinterpret_cast<KxNTamberWebApi::KxCResponse::State&>(nothing)};
};

const KxSTamberWebApiEndpoint& endpointOf(const std::string& operation);

}  // namespace KxNTests
