// The compose files: list, upload, delete. Any name is accepted.
#include <filesystem>

#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/managed_directory.h"
#include "handler/parameters.h"
#include "service/paths.h"

using namespace KxNCre;
using KxNContainer::KxNContainerPaths::COMPOSE_FILES_PATH;

void KxCContainerHandler::ListComposeFiles(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    static const KxSManagedDirectory COMPOSE_FILES{
        .operation = KxEOperation::LIST_COMPOSE_FILES,
        .path = COMPOSE_FILES_PATH,
        .answerKey = nullptr,
        .listedFiles = "Docker compose files",
        .foundFiles = "compose file(s)",
        .directory = "compose-files directory",
        .isUnreadableEmpty = true,
    };
    listDirectory(COMPOSE_FILES, pool, response);
}

std::int32_t KxCContainerHandler::UploadComposeFileStart(const char* fileName, const char*, const void* data,
                                                         std::uint64_t offset, std::uint32_t size) {
    if (offset == 0 && isMissing(fileName)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Rejected compose file upload with empty file name");
        return -1;
    }
    return writeUploadChunk(COMPOSE_FILES_PATH, fileName, data, offset, size);
}

void KxCContainerHandler::UploadComposeFile(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                            KxCResponse& response) {
    const OperationScope scope(KxEOperation::UPLOAD_COMPOSE_FILE);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Finalising compose file upload");
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    const std::string path = finishUploadSession();
    // Where the system cannot tell whether the file is there, the exception of `exists` leaves the operation.
    if (path.empty() || !std::filesystem::exists(path)) {
        answerBadRequest(pool, response, "No compose YAML file was uploaded");
        return;
    }
    answerUploadedFile(pool, path, response);
    KxCRTE_LOG(0, "Korvex Container Service: Finished uploading compose file '%s'", path.c_str());
}

void KxCContainerHandler::DeleteComposeFile(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                            KxCResponse& response) {
    const OperationScope scope(KxEOperation::DELETE_COMPOSE_FILE);
    if (isMissing(name)) {
        answerBadRequest(pool, response, "Compose file name must be provided");
        return;
    }
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Deleting compose file '%s'", name);
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    deleteFile(pool, (COMPOSE_FILES_PATH + name).c_str(), response);
}
