#include "platform/container_runtime/stores/json_object.h"

#include <exception>
#include <new>

#include "KxJson.h"
#include "platform/json/json_text.h"

namespace KxNContainer {

bool parseJsonObject(const std::string& text, KxNJson::json& object, std::string& error) {
    constexpr int maxDepth = 32;  // what is written here nests three deep; other releases may add to it
    try {
        KxNJson::json parsed = KxNJson::parseJsonText(text, maxDepth);
        if (!parsed.is_object()) {
            error = "not a JSON object";
            return false;
        }
        object = std::move(parsed);
        return true;
    } catch (const std::bad_alloc&) {
        throw;  // which says nothing about the text
    } catch (const std::exception& exception) {
        error = exception.what();
        return false;
    }
}

std::string formatJsonFile(const KxNJson::json& object) {
    return object.dump(4, ' ', false, KxNJson::Utf8ErrorMode::strict) + "\n";
}

}  // namespace KxNContainer
