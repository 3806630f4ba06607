// One upload: its body from the connection to the handler, and what is answered.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/net/cancellation.h"
#include "platform/net/stream.h"
#include "platform/web_api/connection/limits.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/multipart_reader.h"
#include "platform/web_api/operation/registration.h"
#include "platform/web_api/server/exchange.h"

namespace KxNTamberWebApi {

/// What an upload works on. All of it outlives the upload.
struct UploadRequest {
    const KxSTamberWebApiEndpoint* endpoint;
    Caller caller;
    const KxSTamberWebApiParameterValue* const* values;
    std::string target;       ///< as it was requested
    std::string contentType;  ///< as it was sent
    std::string boundary;     ///< of a form; empty for a raw body
    std::string fileName;     ///< of a raw body
    bool hasBody;
    std::uint64_t maximumSize;  ///< of the body, 0 for none
};

/// Fills in `request` with what the head of `exchange` says of the file; gives why it is refused, or null.
std::optional<Refusal> describeUpload(const Exchange& exchange, std::uint64_t maximumSize, UploadRequest& request);

/// Runs on one upload thread from the first byte of the body to the answer. The thread is reserved for the upload
/// anyway, so it also reads the stream, which it has for itself until `run` returns.
class Upload : private MultipartFileSink {
public:
    /// All that is referred to outlives the upload; `ending` cuts it short.
    Upload(const UploadRequest& request, std::shared_ptr<KxCHandler::Registration> registration, KxNNet::Stream& stream,
           RequestBody& body, const Limits& limits, const KxNNet::Cancellation& ending);

    /// Takes the body and calls the finish phase, where there is to be one. `mayHoldSession` tells whether an upload
    /// may have been abandoned on this thread before; returns the same for the next upload. Lets no exception out.
    bool run(bool mayHoldSession) noexcept;

    /// Valid after `run`: the name that the client gave the file, without directories; empty for none.
    const std::string& name() const { return fileName; }

    /// Valid after `run`: whether the client was too slow.
    bool isLate() const { return late; }

    /// Valid after `run`. Without a status when the client is gone.
    Answer& answer() { return result; }

private:
    enum class Chunks { none, taken, firstRefused, laterRefused };

    void takeBody();
    std::string_view readPiece();
    bool waitFor(KxNNet::Outcome wanted);
    void passPiece(std::string_view piece);
    void endBody();
    bool passChunk(std::string_view data);
    void finish(bool mayHoldSession);
    void refuse(const Refusal& refusal);

    bool onFileBegin(const std::string& fieldName, const std::string& fileName,
                     const std::string& contentType) override;
    bool onFileData(std::string_view data) override;
    bool onFileEnd() override;

    const UploadRequest& request;
    std::shared_ptr<KxCHandler::Registration> registration;
    KxNNet::Stream& stream;
    RequestBody& body;
    const Limits& limits;
    const KxNNet::Cancellation& ending;

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
    bool late = false;
    Answer result;
};

}  // namespace KxNTamberWebApi
