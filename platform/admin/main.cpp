// kx-container-admin: see packaging/kx-container-admin.8.

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "KxCustomConfig.h"
#include "platform/admin/audit_commands.h"
#include "platform/admin/identity_commands.h"

namespace KxNAdmin {

namespace {

constexpr const char* USAGE = R"(Usage:
  kx-container-admin identity add NAME --role viewer|operator|administrator
                                  [--expires DAYS] [--certificate SUBJECT]
  kx-container-admin identity list [--json]
  kx-container-admin identity remove NAME
  kx-container-admin identity renew NAME [--expires DAYS]
  kx-container-admin audit verify [FILE...]
)";

constexpr int FAILED = 1;
constexpr int MISUSED = 2;

std::string readPath(const char* option, const char* defaultValue) {
    namespace config = KxNCustomConfig::KxNWebApi;
    std::string reason;
    if (!KxCCustomConfig::getInstance()->isUsable(config::pSection, &reason)) {
        throw std::runtime_error(reason);
    }
    return KxCCustomConfig::getInstance()->getOption(config::pSection, option, defaultValue, false);
}

int run(const std::string& command, const Words& words) {
    const Output output{std::cout, std::cerr};
    const std::string identities =
        readPath(KxNCustomConfig::KxNWebApi::pOptionIdentitiesFile, "/mnt/cfdrive/containers/identities.json");
    if (command == "identity add") {
        addIdentity(identities, words, output);
    } else if (command == "identity list") {
        listIdentities(identities, words, output);
    } else if (command == "identity remove") {
        removeIdentity(identities, words, output);
    } else if (command == "identity renew") {
        renewIdentity(identities, words, output);
    } else if (command == "audit verify") {
        const std::string audit =
            readPath(KxNCustomConfig::KxNWebApi::pOptionAuditFile, "/mnt/cfdrive/containers/audit.log");
        return verifyAudit(audit, words, output) ? 0 : FAILED;
    } else {
        throw UsageError("there is no command '" + command + "'");
    }
    return 0;
}

}  // namespace

int main(const Words& words) {
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h" || words[0] == "help")) {
        std::cout << USAGE;
        return 0;
    }
    try {
        if (words.size() < 2) {
            throw UsageError(words.empty() ? "the command is missing" : "the command is not complete");
        }
        return run(words[0] + " " + words[1], Words(words.begin() + 2, words.end()));
    } catch (const UsageError& error) {
        std::cerr << "kx-container-admin: " << error.what() << "\n" << USAGE;
        return MISUSED;
    } catch (const std::exception& failure) {
        std::cerr << "kx-container-admin: " << failure.what() << "\n";
        return FAILED;
    }
}

}  // namespace KxNAdmin

int main(int count, char** words) {
    return KxNAdmin::main(KxNAdmin::Words(words + 1, words + count));
}
