// What the files that users manage have in common: listing a directory of them, deleting one.
#include <sys/stat.h>

#include <filesystem>

#include "KxJson.h"
#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/managed_directory.h"

using namespace KxNCre;
using KxNJson::json;
namespace fs = std::filesystem;

namespace {

json describeFile(const fs::path& path) {
    struct stat status {};
    const bool isKnown = stat(path.c_str(), &status) == 0;
    json file;
    file["fileName"] = path.filename().string();
    file["size"] = isKnown ? status.st_size : 0;
    file["modified"] = isKnown ? status.st_mtime : 0;
    return file;
}

}  // namespace

/// Lists the regular files of a directory, links followed, in the order of the file system. One that does not exist is
/// empty.
void KxCContainerHandler::listDirectory(const KxSManagedDirectory& managed, KxCErrorListPool& pool,
                                        KxCResponse& response) {
    const OperationScope scope(managed.operation);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Listing %s", managed.listedFiles);
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    json files = json::array();
    std::error_code error;
    const bool exists = fs::exists(managed.path, error);
    if (error) {
        answerInternalError(pool, response,
                            "Failed to access " + std::string(managed.directory) + ": " + error.message());
        return;
    }
    if (exists) {
        fs::directory_iterator entry(managed.path, error);
        if (error && managed.isUnreadableEmpty) {
            error.clear();
        }
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            std::error_code unknown;
            if (entry->is_regular_file(unknown)) {
                files.push_back(describeFile(entry->path()));
            }
        }
        if (error) {
            answerInternalError(pool, response,
                                "Failed to iterate " + std::string(managed.directory) + ": " + error.message());
            return;
        }
    }

    KxCRTE_LOG(0, "Korvex Container Service: Found %d %s", static_cast<int>(files.size()), managed.foundFiles);
    if (managed.answerKey == nullptr) {
        response.setJsonBody(pool, HTTP_OK, &files);
        return;
    }
    json answer;
    answer[managed.answerKey] = std::move(files);
    response.setJsonBody(pool, HTTP_OK, &answer);
}

void KxCContainerHandler::deleteFile(KxCErrorListPool& pool, const char* path, KxCResponse& response) {
    std::error_code error;
    if (!fs::exists(path, error)) {
        answerNotFound(pool, response, "File '" + std::string(path) + "' not found");
        return;
    }
    fs::remove(path, error);
    if (error) {
        answerInternalError(pool, response, "Failed to delete file '" + std::string(path) + "': " + error.message());
        return;
    }
    response.setEmptyBody(pool, HTTP_DEFAULT_EMPTY);
}

void KxCContainerHandler::answerUploadedFile(KxCErrorListPool& pool, const std::string& path, KxCResponse& response) {
    const json answer = {{"filename", fs::path(path).filename().string()}};
    response.setJsonBody(pool, HTTP_OK, &answer);
}
