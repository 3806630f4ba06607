// The image operations: list, upload and load, remove.
#include <filesystem>
#include <fstream>

#include "KxJson.h"
#include "KxJsonText.h"
#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/KxCContainerHandler.h"
#include "handler/archive_format.h"
#include "handler/parameters.h"
#include "runtime/podman_requests.h"
#include "service/paths.h"

using namespace KxNCre;
using KxNContainer::PodmanReply;
using KxNJson::json;
namespace fs = std::filesystem;

namespace {

constexpr const char* ImageListKeys[] = {"Id",      "ParentId", "RepoTags",   "RepoDigests", "Containers",
                                         "Created", "Size",     "SharedSize", "Labels"};

}  // namespace

void KxCContainerHandler::ListImages(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    const OperationScope scope(KxEOperation::LIST_IMAGES);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Listing images");
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    const PodmanReply reply = KxNPodman::execute(*container, KxNPodman::LIST_IMAGES);
    if (!KxNPodman::isSuccess(reply)) {
        answerInternalError(pool, response, "Error occurred while listing images: " + reply.body);
        return;
    }
    json images;
    if (std::string reason; !KxNJson::selectKeys(reply.body, ImageListKeys, images, reason)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Podman's image list cannot be read: %s", reason.c_str());
        answerInternalError(pool, response, "Error occurred while listing images: " + reply.body);
        return;
    }
    json answer;
    answer["images"] = std::move(images);
    KxCRTE_LOG(1, "Korvex Container Service: Image list response: %s",
               answer.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
    response.setJsonBody(pool, HTTP_OK, &answer);
    KxCRTE_LOG(0, "Korvex Container Service: Finished listing images");
}

std::int32_t KxCContainerHandler::UploadImageStart(const char* fileName, const char*, const void* data,
                                                   std::uint64_t offset, std::uint32_t size) {
    if (offset == 0 && isMissing(fileName)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Rejected image upload with empty file name");
        return -1;
    }
    return writeUploadChunk(KxNContainer::KxNContainerPaths::IMAGES_STORAGE_DIR + "/", fileName, data, offset, size);
}

void KxCContainerHandler::UploadImage(KxCErrorListPool& pool, const KxCRequest&, const json*, KxCResponse& response) {
    const OperationScope scope(KxEOperation::UPLOAD_IMAGE);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Loading image");
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    const std::string path = finishUploadSession();
    std::error_code error;
    if (path.empty() || !fs::exists(path, error)) {
        answerBadRequest(pool, response, "No image tarball was uploaded");
        return;
    }
    std::ifstream tarball(path, std::ios::in | std::ios::binary);
    if (!detectArchiveFormat(tarball, path.c_str()).isKnown()) {
        // The file stays, so that whoever uploaded it can see what arrived.
        KxCRTE_LOG_Impl(4,
                        "Korvex Container Service: Uploaded file '%s' is not a valid tar archive "
                        "(supported: .tar, .tar.gz/.tgz, .tar.bz2, .tar.xz, .tar.zst)",
                        path.c_str());
        answerBadRequest(pool, response,
                         "Uploaded file is not a valid tar archive "
                         "(supported: .tar, .tar.gz/.tgz, .tar.bz2, .tar.xz, .tar.zst)");
        return;
    }
    tarball.close();

    const PodmanReply reply = KxNPodman::execute(*container, KxNPodman::LOAD_IMAGE, {}, {}, path);
    fs::remove(path, error);
    if (error) {
        KxCRTE_LOG_Impl(3, "Korvex Container Service: Failed to remove image tarball '%s': %s", path.c_str(),
                        error.message().c_str());
    }
    if (!KxNPodman::isSuccess(reply)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Podman /images/load failed with HTTP %d: %s", reply.status,
                        KxNPodman::loggableBody(reply).c_str());
        answerInternalError(pool, response, "Error occurred while loading the image: " + reply.body);
        return;
    }
    response.setEmptyBody(pool, HTTP_DEFAULT_EMPTY);
    KxCRTE_LOG(0, "Korvex Container Service: Finished loading image %s", path.c_str());
}

void KxCContainerHandler::RemoveImage(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                      KxCResponse& response) {
    const OperationScope scope(KxEOperation::REMOVE_IMAGE);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Deleting image");
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    if (isMissing(name)) {
        answerBadRequest(pool, response, "Image name must be provided");
        return;
    }

    const PodmanReply reply = KxNPodman::execute(*container, KxNPodman::DELETE_IMAGE, name);
    const std::string quotedName = "'" + std::string(name) + "'";
    const std::string failure = "Error occurred while deleting image " + quotedName + ": " + reply.body;
    if (KxNPodman::isSuccess(reply)) {
        json answer;
        if (std::string reason; !KxNJson::parse(reply.body, answer, reason)) {
            KxCRTE_LOG_Impl(
                4, "Korvex Container Service: Podman's answer to the deletion of image '%s' cannot be read: %s", name,
                reason.c_str());
            answerInternalError(pool, response, failure);
            return;
        }
        response.setJsonBody(pool, HTTP_OK, &answer);
        KxCRTE_LOG(0, "Korvex Container Service: Finished deleting image %s", name);
    } else if (reply.status == HTTP_CONFLICT) {
        answerConflict(pool, response, "Image " + quotedName + " is in use and cannot be deleted");
    } else if (reply.status == HTTP_NOT_FOUND) {
        answerNotFound(pool, response, "Image " + quotedName + " does not exist");
    } else {
        answerInternalError(pool, response, failure);
    }
}
