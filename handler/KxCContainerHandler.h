// The one handler of the program: all operations of the API.
//
// The operations lie in one source file per area. None lets an exception out, except the finish of a compose-file or
// plugin upload whose file's status cannot be read. They hold no lock of the service while they call the container
// runtime, and may run any number at once.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>

#include "KxContainer.h"
#include "KxRtos.h"
#include "api/KxCCreTamberWebApiHandler.h"
#include "api/service_guard.h"

class KxCContainerHandler final : public KxCCreTamberWebApiHandler {
public:
    KxCContainerHandler();

    /// Leaves a server that still runs first, so that no operation runs on what is being destroyed.
    ~KxCContainerHandler() override;

    void ListContainers(KxCErrorListPool& pool, const KxCRequest& request, const bool* all,
                        KxCResponse& response) override;
    void DeleteContainer(KxCErrorListPool& pool, const KxCRequest& request, const char* name, const bool* force,
                         KxCResponse& response) override;
    void StartContainer(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                        KxCResponse& response) override;
    void StopContainer(KxCErrorListPool& pool, const KxCRequest& request, const char* name, const std::int64_t* timeout,
                       KxCResponse& response) override;
    void GetContainerLogs(KxCErrorListPool& pool, const KxCRequest& request, const char* name, const bool* stdoutWanted,
                          const bool* stderrWanted, const std::int64_t* since, const std::int64_t* until,
                          const bool* timestamps, const char* tail, KxCResponse& response) override;
    void GetContainerLogsSetWebSocket(KxCErrorListPool& pool, const char* name, const bool* stdoutWanted,
                                      const bool* stderrWanted, const std::int64_t* since, const std::int64_t* until,
                                      const bool* timestamps, const char* tail, KxCWebSocket* socket) override;
    void ListImages(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void UploadImage(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                     KxCResponse& response) override;
    std::int32_t UploadImageStart(const char* fileName, const char* fieldName, const void* data, std::uint64_t offset,
                                  std::uint32_t size) override;
    void RemoveImage(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                     KxCResponse& response) override;
    void GetSettings(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void PatchSettings(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                       KxCResponse& response) override;
    void GetEnable(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void PatchEnable(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                     KxCResponse& response) override;
    void ListPlugins(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void UploadPlugin(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                      KxCResponse& response) override;
    std::int32_t UploadPluginStart(const char* fileName, const char* fieldName, const void* data, std::uint64_t offset,
                                   std::uint32_t size) override;
    void DeletePlugin(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                      KxCResponse& response) override;
    void ActivatePlugin(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body, const char* name,
                        const char* pluginVersion, KxCResponse& response) override;
    void ComposeStart(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                      KxCResponse& response) override;
    void ComposeStop(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                     KxCResponse& response) override;
    void ComposeCreate(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                       KxCResponse& response) override;
    void ComposeRemove(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                       KxCResponse& response) override;
    void ListComposeFiles(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void UploadComposeFile(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                           KxCResponse& response) override;
    std::int32_t UploadComposeFileStart(const char* fileName, const char* fieldName, const void* data,
                                        std::uint64_t offset, std::uint32_t size) override;
    void DeleteComposeFile(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                           KxCResponse& response) override;
    void ListCerts(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void UploadCertificate(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                           KxCResponse& response) override;
    std::int32_t UploadCertificateStart(const char* fileName, const char* fieldName, const void* data,
                                        std::uint64_t offset, std::uint32_t size) override;
    void DeleteCertificate(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void UploadPrivateKey(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                          KxCResponse& response) override;
    std::int32_t UploadPrivateKeyStart(const char* fileName, const char* fieldName, const void* data,
                                       std::uint64_t offset, std::uint32_t size) override;
    void DeletePrivateKey(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;
    void UploadCaCertificate(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                             KxCResponse& response) override;
    std::int32_t UploadCaCertificateStart(const char* fileName, const char* fieldName, const void* data,
                                          std::uint64_t offset, std::uint32_t size) override;
    void DeleteCaCertificate(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response) override;

private:
    // Families of operations that differ in words only.
    struct KxSContainerAction;
    struct KxSCertificateKind;
    struct KxSComposeCommand;
    struct KxSManagedDirectory;
    void changeContainer(const KxSContainerAction& action, KxCErrorListPool& pool, const char* name,
                         const std::string& query, KxCResponse& response);
    void finishCertificateUpload(const KxSCertificateKind& kind, KxCErrorListPool& pool, KxCResponse& response);
    std::int32_t takeCertificateChunk(const KxSCertificateKind& kind, const char* fileName, const void* data,
                                      std::uint64_t offset, std::uint32_t size);
    void deleteCertificateFile(const KxSCertificateKind& kind, KxCErrorListPool& pool, KxCResponse& response);
    void runCompose(const KxSComposeCommand& command, KxCErrorListPool& pool, const char* name, KxCResponse& response);

    void listDirectory(const KxSManagedDirectory& managed, KxCErrorListPool& pool, KxCResponse& response);

    /// Removes what lies at `path`, a directory only when it is empty, and answers: the empty success, 404 when nothing
    /// is there (a dangling link counts as nothing), or 500 with the system's text. `path` is taken as it is.
    static void deleteFile(KxCErrorListPool& pool, const char* path, KxCResponse& response);

    /// Answers 200 with the name under which an upload lies at `path`.
    static void answerUploadedFile(KxCErrorListPool& pool, const std::string& path, KxCResponse& response);

    /// See KxNCre::checkServiceStarted.
    bool checkServiceStarted(KxCErrorListPool& pool, KxCResponse& response) {
        return KxNCre::checkServiceStarted(*container, pool, response);
    }

    // Uploads (uploads.cpp). A session belongs to the thread that opened it: all chunks of an upload and its finish
    // come on one thread, which carries one upload at a time.

    /// One upload in progress. Destroying it closes its file.
    struct KxSUploadSession {
        std::unique_ptr<std::ofstream> stream;  ///< null once the session is closed
        std::string filePath;
        std::thread::id threadId;
        KxNRtosAbstraction::KxCMutex mutex{nullptr};  ///< serialises writing and closing of this session's file
    };

    /// Writes `size` bytes at byte `offset` of the file `directory` + `fileName`, which an offset of 0 creates or
    /// empties. 0 when the bytes have reached the file, -1 otherwise.
    std::int32_t writeUploadChunk(const std::string& directory, const char* fileName, const void* data,
                                  std::uint64_t offset, std::uint32_t size);

    /// Closes the calling thread's upload and returns the path of its file; empty when the thread has none.
    std::string finishUploadSession();

    std::shared_ptr<KxSUploadSession> openUploadSession(const std::string& directory, const char* fileName);
    std::shared_ptr<KxSUploadSession> findUploadSession();

    KxNContainer::KxCContainer* const container;

    /// Guards `uploadSessions` only. Never taken while a session's own mutex is held.
    KxNRtosAbstraction::KxCMutex uploadSessionsMutex{nullptr};

    /// Open uploads by the thread that carries them.
    std::unordered_map<std::thread::id, std::shared_ptr<KxSUploadSession>> uploadSessions;
};
