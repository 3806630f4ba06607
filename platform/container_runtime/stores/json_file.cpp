#include "platform/container_runtime/stores/json_file.h"

#include <filesystem>
#include <stdexcept>

#include "KxJson.h"
#include "platform/common/atomic_file.h"
#include "platform/json/json_text.h"

namespace KxNContainer {

std::optional<KxNJson::json> readJsonFile(const std::string& path) {
    constexpr std::size_t maxBytes = 1 << 20;
    constexpr int maxDepth = 32;  // what is written here nests three deep; other releases may add to it
    std::string text;
    std::string error;
    switch (KxNCommon::readSmallFile(path, maxBytes, text, error)) {
        case KxNCommon::ReadResult::Missing:
            return std::nullopt;
        case KxNCommon::ReadResult::Failed:
            throw std::runtime_error(error);
        case KxNCommon::ReadResult::TooLarge:
            throw std::invalid_argument(error);
        case KxNCommon::ReadResult::Ok:
            break;
    }
    try {
        KxNJson::json parsed = KxNJson::parseJsonText(text, maxDepth);
        if (parsed.is_object()) {
            return parsed;
        }
    } catch (const KxNJson::json::exception& exception) {
        throw std::invalid_argument(exception.what());
    }
    throw std::invalid_argument("not a JSON object");
}

void writeJsonFile(const std::string& path, const KxNJson::json& object, const std::string& failure) {
    std::error_code ignored;  // a directory that cannot be made shows in the next step
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::string error;
    bool isWritten = false;
    try {
        const std::string text = object.dump(4, ' ', false, KxNJson::Utf8ErrorMode::strict) + "\n";
        isWritten = KxNCommon::replaceFile(path, text, 0644, error);
    } catch (const KxNJson::json::exception& exception) {
        error = exception.what();
    }
    if (!isWritten) {
        throw std::runtime_error(failure + ": " + error);
    }
}

}  // namespace KxNContainer
