// Calls operations the way the web API server library does and gives back what they did.
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

/// A parameter that the request holds; the texts must outlive the call.
using Value = KxSTamberWebApiParameterValue;

inline Value name(const char* text) {
    return {"name", KxNTamberWebApi::LOCATION_PATH, KxNTamberWebApi::TYPE_TEXT, text, false, 0};
}
inline Value text(const char* key, const char* value) {
    return {key, KxNTamberWebApi::LOCATION_QUERY, KxNTamberWebApi::TYPE_TEXT, value, false, 0};
}
inline Value flag(const char* key, bool value) {
    return {key, KxNTamberWebApi::LOCATION_QUERY, KxNTamberWebApi::TYPE_BOOLEAN, nullptr, value, 0};
}
inline Value number(const char* key, std::int64_t value) {
    return {key, KxNTamberWebApi::LOCATION_QUERY, KxNTamberWebApi::TYPE_INT64, nullptr, false, value};
}

/// What Podman answers a request, and the journal that this must leave.
struct PodmanCase {
    int status;
    std::string answer;
    std::string journal;
};

/// A body and the journal that a request with it must leave.
struct BodyCase {
    std::optional<json> body;
    std::string journal;
};

class Operations : public testing::Test {
protected:
    Operations() {
        KxNDoubles::reset();
        handler.emplace();
    }

    /// Sends a request to `endpoint` and returns the journal of it alone.
    std::string call(KxNCre::KxEEndpoint endpoint, const std::vector<Value>& values = {},
                     const std::optional<json>& body = std::nullopt);

    /// The second phase of the log stream.
    std::string callWebSocket(const std::vector<Value>& values);

    /// Hands over one chunk; 0 or -1.
    std::int32_t chunk(KxNCre::KxEEndpoint endpoint, const char* fileName, std::string_view data,
                       std::uint64_t offset = 0);

    /// Finishes the calling thread's upload like `call`, but leaves the journal alone. Any thread.
    void finish(KxNCre::KxEEndpoint endpoint);

    void checkAnswers(KxNCre::KxEEndpoint endpoint, const std::vector<Value>& values,
                      const std::vector<PodmanCase>& cases);
    void checkBodies(KxNCre::KxEEndpoint endpoint, const std::vector<Value>& values,
                     const std::vector<BodyCase>& cases);

    std::optional<KxCContainerHandler> handler;
    KxCErrorListPool pool;
};

/// Replaces "<guard>" by the questions of a guard that passes, and takes the newline off the front.
std::string expected(std::string journal);

}  // namespace KxNTests
