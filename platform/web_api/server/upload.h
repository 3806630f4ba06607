// One upload: its body from the connection to the handler, and what is answered.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/multipart_reader.h"
#include "platform/web_api/http/request_buffer.h"
#include "platform/web_api/http/request_parser.h"
#include "platform/web_api/server/connection.h"
#include "platform/web_api/server/limits.h"
#include "platform/web_api/server/registration.h"
#include "platform/web_api/server/transport.h"

namespace KxNTamberWebApi {

/// What an upload works on. All of it outlives the upload.
struct UploadRequest {
    const KxSTamberWebApiEndpoint* endpoint;
    const KxSTamberWebApiParameterValue* const* values;
    std::string target;       ///< as it was requested
    std::string contentType;  ///< as it was sent
    std::string boundary;     ///< of a form; empty for a raw body
    std::string fileName;     ///< of a raw body
    bool hasBody;
    std::uint64_t maximumSize;  ///< of the body, 0 for none
};

/// Runs on one upload thread from the first byte of the body to the answer. The thread is reserved for the upload
/// anyway, so it also reads the connection: no byte changes hands between threads.
class Upload : private MultipartFileSink {
public:
    Upload(const UploadRequest& request, std::shared_ptr<KxCHandler::Registration> registration, Transport& transport,
           RequestBuffer& buffered, BodyDecoder& body, KxNNet::Deadline& deadline, const Limits& limits);

    /// Takes the body and calls the finish phase, where there is to be one. `mayHoldSession` tells whether an upload
    /// may have been abandoned on this thread before; returns the same for the next upload. Lets no exception out.
    bool run(bool mayHoldSession) noexcept;

    /// Valid after `run`: the name that the client gave the file, without directories; empty for none.
    const std::string& name() const { return fileName; }

    /// Valid after `run`. Without a status when the client is gone.
    const Answer& answer() const { return result; }
    Answer& answer() { return result; }

private:
    enum class Chunks { none, taken, firstRefused, laterRefused };

    void takeBody();
    std::string_view readPiece();
    bool passRaw(std::string_view piece);
    bool passForm(std::string_view piece);
    void endBody();
    bool passChunk(std::string_view data);
    bool mayGrowBy(std::size_t size);
    void finish(bool mayHoldSession);
    void refuse(int status, std::string_view detail);

    bool onFileBegin(const std::string& fieldName, const std::string& fileName,
                     const std::string& contentType) override;
    bool onFileData(std::string_view data) override;
    bool onFileEnd() override;

    const UploadRequest& request;
    std::shared_ptr<KxCHandler::Registration> registration;
    Transport& transport;
    RequestBuffer& buffered;
    BodyDecoder& body;
    KxNNet::Deadline& deadline;
    const Limits& limits;

    std::unique_ptr<char[]> piece;
    std::unique_ptr<MultipartReader> form;
    std::string fieldName;
    std::string fileName;
    std::uint64_t received = 0;  // of the body
    std::uint64_t offset = 0;    // in the file
    Chunks chunks = Chunks::none;
    bool isOver = false;  // the answer stands, or there is nobody to answer
    bool callsFinish = false;
    bool handlerSawIt = false;  // a session may have begun
    bool finishedWell = false;
    Answer result;
};

}  // namespace KxNTamberWebApi
