#include <atomic>
#include <cstdlib>

#include "KxCustomConfig.h"
#include "KxLog.h"
#include "platform/custom_config/config_file.h"

namespace {

constexpr const char* DEFAULT_FILE = "/etc/kx-container-service.conf";
constexpr const char* FILE_VARIABLE = "KX_CUSTOM_CONFIG";

std::string configuredFile() {
    const char* const named = std::getenv(FILE_VARIABLE);
    return named != nullptr && *named != '\0' ? named : DEFAULT_FILE;
}

}  // namespace

struct KxCCustomConfig::Contents {
    std::string fileName;
    KxNConfigFile::Config config;
};

KxCCustomConfig::KxCCustomConfig(std::unique_ptr<Contents> read) : contents(std::move(read)) {}

KxCCustomConfig::~KxCCustomConfig() = default;

KxCCustomConfig* KxCCustomConfig::getInstance() {
    static KxCCustomConfig* const instance = [] {
        const std::string fileName = configuredFile();
        return new KxCCustomConfig(std::make_unique<Contents>(Contents{fileName, KxNConfigFile::read(fileName)}));
    }();
    // After the instance is complete, because the log asks it for its level.
    static std::atomic<bool> isReported{false};
    if (!isReported.exchange(true)) {
        for (const KxNConfigFile::Problem& problem : instance->contents->config.problems) {
            KxCRTE_LOG(4, "Korvex Container Service: Configuration error: %s", problem.text.c_str());
        }
    }
    return instance;
}

std::string KxCCustomConfig::getOption(const char* section, const char* option, const char* defaultValue,
                                       bool mandatory) const {
    const auto& values = contents->config.values;
    if (const auto found = values.find({section, option}); found != values.end()) {
        return found->second;
    }
    if (mandatory) {
        KxCRTE_LOG(3, "Korvex Container Service: %s does not hold the key %s in section [%s]; using \"%s\"",
                   contents->fileName.c_str(), option, section, defaultValue);
    }
    return defaultValue;
}

bool KxCCustomConfig::isUsable(const char* section, std::string* reason) const {
    for (const KxNConfigFile::Problem& problem : contents->config.problems) {
        if (problem.isBlocking && (problem.section.empty() || problem.section == section)) {
            if (reason != nullptr) {
                *reason = problem.text;
            }
            return false;
        }
    }
    return true;
}
