// The upload sessions behind all uploads: chunks are written to their file as they arrive.
#include <filesystem>

#include "KxLog.h"
#include "handler/KxCContainerHandler.h"

using KxNRtosAbstraction::KxCMutexLock;

namespace {

constexpr std::int32_t TAKEN = 0;
constexpr std::int32_t REFUSED = -1;

}  // namespace

std::int32_t KxCContainerHandler::writeUploadChunk(const std::string& directory, const char* fileName, const void* data,
                                                   std::uint64_t offset, std::uint32_t size) {
    std::shared_ptr<KxSUploadSession> session;
    if (offset == 0) {
        session = openUploadSession(directory, fileName);
        if (session == nullptr) {
            return REFUSED;
        }
    } else {
        session = findUploadSession();
    }
    if (session == nullptr || session->stream == nullptr || !session->stream->is_open()) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Upload callback called without an open file for thread %zu",
                        std::hash<std::thread::id>()(std::this_thread::get_id()));
        return REFUSED;
    }

    const KxCMutexLock lock(session->mutex);
    std::ofstream& stream = *session->stream;
    stream.seekp(static_cast<std::streamoff>(offset), std::ios::beg);
    stream.write(static_cast<const char*>(data), size);
    if (!stream.good()) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Error writing to upload file '%s'", session->filePath.c_str());
        return REFUSED;
    }
    KxCRTE_LOG(1, "Korvex Container Service: Wrote chunk to '%s': offset=%llu, size=%u", session->filePath.c_str(),
               static_cast<unsigned long long>(offset), size);
    return TAKEN;
}

/// Creates the calling thread's session, in place of one that it left behind. Null, and a log line, when the file
/// cannot be opened.
std::shared_ptr<KxCContainerHandler::KxSUploadSession> KxCContainerHandler::openUploadSession(
    const std::string& directory, const char* fileName) {
    const KxCMutexLock lock(uploadSessionsMutex);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Failed to create upload dir: %s", error.message().c_str());
        return nullptr;
    }

    auto session = std::make_shared<KxSUploadSession>();
    session->filePath = directory + fileName;
    session->threadId = std::this_thread::get_id();
    session->stream = std::make_unique<std::ofstream>();
    // Without a buffer every chunk is with the kernel when its write returns: a full disk fails the chunk that
    // met it, not the close at the end, which reports to nobody.
    session->stream->rdbuf()->pubsetbuf(nullptr, 0);
    session->stream->open(session->filePath, std::ios::out | std::ios::binary | std::ios::trunc);
    if (!session->stream->is_open()) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Failed to open file: %s", session->filePath.c_str());
        return nullptr;
    }
    uploadSessions[session->threadId] = session;
    return session;
}

/// The calling thread's session, null when it has none.
std::shared_ptr<KxCContainerHandler::KxSUploadSession> KxCContainerHandler::findUploadSession() {
    const KxCMutexLock lock(uploadSessionsMutex);
    const auto found = uploadSessions.find(std::this_thread::get_id());
    return found != uploadSessions.end() ? found->second : nullptr;
}

std::string KxCContainerHandler::finishUploadSession() {
    std::shared_ptr<KxSUploadSession> session;
    {
        const KxCMutexLock lock(uploadSessionsMutex);
        const auto found = uploadSessions.find(std::this_thread::get_id());
        if (found == uploadSessions.end()) {
            return {};
        }
        session = std::move(found->second);
        uploadSessions.erase(found);
    }
    if (session->stream == nullptr || !session->stream->is_open()) {
        return {};
    }
    const KxCMutexLock lock(session->mutex);
    session->stream->flush();
    session->stream.reset();
    return session->filePath;
}
