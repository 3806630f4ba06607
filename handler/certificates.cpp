// The TLS material of the container service: a certificate, a private key and a CA certificate, each under a fixed
// name.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/managed_directory.h"
#include "handler/parameters.h"
#include "service/paths.h"

using namespace KxNCre;
using KxNContainer::KxNContainerPaths::CONTAINER_CERTS_DIR;

/// One kind of file, in the words of its messages.
struct KxCContainerHandler::KxSCertificateKind {
    KxEOperation upload;
    KxEOperation remove;
    const char* fileName;
    const char* name;
    const char* deletedName;  ///< what the log line of its deletion calls it
    const char* missingName;  ///< what the refusal of an upload without a file calls it
    bool isSecret;            ///< whether only its owner may read the file

    static const KxSCertificateKind CERTIFICATE;
    static const KxSCertificateKind PRIVATE_KEY;
    static const KxSCertificateKind CA_CERTIFICATE;
};

constexpr KxCContainerHandler::KxSCertificateKind KxCContainerHandler::KxSCertificateKind::CERTIFICATE{
    .upload = KxEOperation::UPLOAD_CERTIFICATE,
    .remove = KxEOperation::DELETE_CERTIFICATE,
    .fileName = "server.crt",
    .name = "TLS certificate",
    .deletedName = "CA certificate",  // the deletion of either certificate is logged in the same words
    .missingName = "TLS certificate",
    .isSecret = false,
};
constexpr KxCContainerHandler::KxSCertificateKind KxCContainerHandler::KxSCertificateKind::PRIVATE_KEY{
    .upload = KxEOperation::UPLOAD_PRIVATE_KEY,
    .remove = KxEOperation::DELETE_PRIVATE_KEY,
    .fileName = "server.key",
    .name = "TLS private key",
    .deletedName = "TLS private key",
    .missingName = "private key",
    .isSecret = true,
};
constexpr KxCContainerHandler::KxSCertificateKind KxCContainerHandler::KxSCertificateKind::CA_CERTIFICATE{
    .upload = KxEOperation::UPLOAD_CA_CERTIFICATE,
    .remove = KxEOperation::DELETE_CA_CERTIFICATE,
    .fileName = "ca.crt",
    .name = "CA certificate",
    .deletedName = "CA certificate",
    .missingName = "CA certificate",
    .isSecret = false,
};

namespace {

/// Makes the file, or closes one that is there, to everybody but its owner. That has to come before the first byte is
/// written. What fails here fails in the writing too, which reports it.
void closeToOthers(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file >= 0) {
        fchmod(file, S_IRUSR | S_IWUSR);
        close(file);
    }
}

}  // namespace

void KxCContainerHandler::ListCerts(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    static const KxSManagedDirectory CERTIFICATES{
        .operation = KxEOperation::LIST_CERTS,
        .path = CONTAINER_CERTS_DIR,
        .answerKey = "certs",
        .listedFiles = "TLS certificate files",
        .foundFiles = "TLS certificate file(s)",
        .directory = "certificate directory",
        .isUnreadableEmpty = false,
    };
    listDirectory(CERTIFICATES, pool, response);
}

std::int32_t KxCContainerHandler::takeCertificateChunk(const KxSCertificateKind& kind, const char* fileName,
                                                       const void* data, std::uint64_t offset, std::uint32_t size) {
    if (offset == 0 && isMissing(fileName)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: No file name provided for %s upload", kind.name);
        return -1;
    }
    if (offset == 0 && kind.isSecret) {
        closeToOthers(CONTAINER_CERTS_DIR + "/" + kind.fileName);
    }
    return writeUploadChunk(CONTAINER_CERTS_DIR + "/", kind.fileName, data, offset, size);
}

void KxCContainerHandler::finishCertificateUpload(const KxSCertificateKind& kind, KxCErrorListPool& pool,
                                                  KxCResponse& response) {
    const OperationScope scope(kind.upload);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Uploading %s", kind.name);
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    const std::string path = finishUploadSession();
    if (std::error_code error; path.empty() || !std::filesystem::exists(path, error)) {
        answerBadRequest(pool, response, "No " + std::string(kind.missingName) + " file was uploaded");
        return;
    }
    answerUploadedFile(pool, path, response);
    KxCRTE_LOG(0, "Korvex Container Service: %s uploaded successfully", kind.name);
}

void KxCContainerHandler::deleteCertificateFile(const KxSCertificateKind& kind, KxCErrorListPool& pool,
                                                KxCResponse& response) {
    const OperationScope scope(kind.remove);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Deleting %s", kind.deletedName);
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    deleteFile(pool, (CONTAINER_CERTS_DIR + "/" + kind.fileName).c_str(), response);
}

std::int32_t KxCContainerHandler::UploadCertificateStart(const char* fileName, const char*, const void* data,
                                                         std::uint64_t offset, std::uint32_t size) {
    return takeCertificateChunk(KxSCertificateKind::CERTIFICATE, fileName, data, offset, size);
}

void KxCContainerHandler::UploadCertificate(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                            KxCResponse& response) {
    finishCertificateUpload(KxSCertificateKind::CERTIFICATE, pool, response);
}

void KxCContainerHandler::DeleteCertificate(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    deleteCertificateFile(KxSCertificateKind::CERTIFICATE, pool, response);
}

std::int32_t KxCContainerHandler::UploadPrivateKeyStart(const char* fileName, const char*, const void* data,
                                                        std::uint64_t offset, std::uint32_t size) {
    return takeCertificateChunk(KxSCertificateKind::PRIVATE_KEY, fileName, data, offset, size);
}

void KxCContainerHandler::UploadPrivateKey(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                           KxCResponse& response) {
    finishCertificateUpload(KxSCertificateKind::PRIVATE_KEY, pool, response);
}

void KxCContainerHandler::DeletePrivateKey(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    deleteCertificateFile(KxSCertificateKind::PRIVATE_KEY, pool, response);
}

std::int32_t KxCContainerHandler::UploadCaCertificateStart(const char* fileName, const char*, const void* data,
                                                           std::uint64_t offset, std::uint32_t size) {
    return takeCertificateChunk(KxSCertificateKind::CA_CERTIFICATE, fileName, data, offset, size);
}

void KxCContainerHandler::UploadCaCertificate(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                              KxCResponse& response) {
    finishCertificateUpload(KxSCertificateKind::CA_CERTIFICATE, pool, response);
}

void KxCContainerHandler::DeleteCaCertificate(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    deleteCertificateFile(KxSCertificateKind::CA_CERTIFICATE, pool, response);
}
