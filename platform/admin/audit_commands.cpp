#include "platform/admin/audit_commands.h"

#include <filesystem>
#include <ostream>

#include "platform/web_api/audit/audit_chain.h"

namespace KxNAdmin {

namespace {

std::vector<std::string> keptFiles(const std::string& path) {
    if (path.empty()) {
        throw std::runtime_error("the configuration keeps no audit record; name the files to verify");
    }
    std::vector<std::string> files;
    for (const std::string& file : {path + ".1", path}) {
        if (std::filesystem::exists(file)) {
            files.push_back(file);
        }
    }
    if (files.empty()) {
        throw std::runtime_error("there is no audit record at '" + path + "'; name the files to verify");
    }
    return files;
}

}  // namespace

bool verifyAudit(const std::string& path, Words words, const Output& output) {
    for (const std::string& word : words) {
        if (word.starts_with("--")) {
            throw UsageError("there is no option '" + word + "'");
        }
    }
    const KxNTamberWebApi::AuditVerdict verdict =
        KxNTamberWebApi::verifyAuditFiles(words.empty() ? keptFiles(path) : std::move(words));
    for (const std::string& note : verdict.notes) {
        output.told << "Note: " << note << "." << std::endl;
    }
    if (!verdict.fault.empty()) {
        output.out << "The chain is broken: " << verdict.fault << "." << std::endl;
        return false;
    }
    output.out << "The chain holds: " << verdict.entries << " entries";
    if (verdict.entries > 0) {
        output.out << ", from " << verdict.first << " to " << verdict.last;
    }
    output.out << "." << std::endl;
    return true;
}

}  // namespace KxNAdmin
