// One upload: its body from the connection to the handler, and what is answered.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/net/cancellation.h"
#include "platform/net/stream.h"
#include "platform/web_api/connection/least_rate.h"
#include "platform/web_api/connection/limits.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/multipart_reader.h"
#include "platform/web_api/operation/registration.h"
#include "platform/web_api/server/exchange.h"
#include "platform/web_api/threads/fair_shares.h"

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
    std::uint64_t maximumSize;  ///< of the file, 0 for none
    const UploadKind* kind;
};

/// Fills in `request` with what the head of `exchange` says of the file; gives why it is refused, or null. `settings`
/// outlive the request.
std::optional<Refusal> describeUpload(const Exchange& exchange, const ServerSettings& settings, UploadRequest& request);

/// Begins on the event loop, where the beginning of the file is collected: a client that does not send it costs memory
/// and no thread. Goes on on an upload thread, which is reserved for the upload until its end and so also waits for the
/// rest of the body. One thread at a time uses the object, the stream and the body.
class Upload : private MultipartFileSink {
public:
    /// All that is referred to outlives the upload; `ending` cuts it short.
    /// `memory` is a share of `beginningSize` bytes.
    Upload(const UploadRequest& request, std::shared_ptr<KxCHandler::Registration> registration, KxNNet::Stream& stream,
           RequestBody& body, const Limits& limits, const KxNNet::Cancellation& ending, FairShare memory);

    /// Bytes of memory that the beginning of the file takes at most.
    static std::size_t beginningSize(const UploadRequest& request, const RequestBody& body, const Limits& limits);

    // On the event loop.

    /// Takes what has come of the body and does not wait. `done`: `hasBeginning` may be true now.
    KxNNet::Outcome collectSome();
    /// The client did not send in time.
    void giveUpWaiting();
    /// Whether a thread can go on, or `isOver`.
    bool hasBeginning() const {
        return over || !request.hasBody || body.isComplete() || fileSize >= limits.uploadBeginning;
    }
    /// Whether the answer stands, or nobody is there to be answered.
    bool isOver() const { return over; }
    /// Whether there is a file that a handler may take. Once `hasBeginning`.
    bool bringsFile() const { return hasFile && !fileName.empty(); }
    LeastRate& rate() { return leastRate; }

    // On an upload thread.

    /// Passes the file on and calls the finish phase, where there is to be one. `mayHoldSession` tells whether an
    /// upload may have been abandoned on this thread before; returns the same for the next upload. Lets no exception
    /// out.
    bool run(bool mayHoldSession) noexcept;

    // Afterwards.

    /// Whether the handler refused the beginning on a thread on which its finish phase must not be called: the upload
    /// has not ended and is to be run again, on another thread.
    bool wantsCleanThread() const { return isMisplaced; }
    /// The name that the client gave the file, without directories; empty for none.
    const std::string& name() const { return fileName; }
    /// How much of the file the handler has taken, in bytes.
    std::uint64_t size() const { return offset; }
    /// Whether the client was too slow.
    bool isLate() const { return late; }
    /// Without a status when the client is gone.
    Answer& answer() { return result; }

private:
    enum class Taken { yes, no, handlerIsGone };

    KxNNet::Outcome takePiece(std::span<char> room);
    void endBody();
    bool waitFor(KxNNet::Outcome wanted);
    void carryBody(bool mayHoldSession);
    bool passBeginning(bool mayHoldSession);
    bool hasRoomFor(std::string_view data);
    Taken offer(std::string_view data);
    void endWithoutRoom(std::uint64_t size, std::uint64_t room);
    std::string storedPath() const;
    void finish(bool mayHoldSession);
    void refuse(const Refusal& refusal);

    bool onFileBegin(const std::string& fieldName, const std::string& fileName,
                     const std::string& contentType) override;
    bool onFileData(std::string_view data) override;
    bool onFileEnd() override { return true; }

    const UploadRequest& request;
    const std::shared_ptr<KxCHandler::Registration> registration;
    KxNNet::Stream& stream;
    RequestBody& body;
    const Limits& limits;
    const KxNNet::Cancellation& ending;

    FairShare memory;  // for `beginning`
    std::unique_ptr<char[]> beginning;
    const std::size_t beginningRoom;
    std::unique_ptr<MultipartReader> form;
    std::string fieldName;
    std::string fileName;
    bool hasFile;                // a raw body is one, a form may have one
    std::uint64_t fileSize = 0;  // what has come
    std::uint64_t offset = 0;    // what the handler has taken
    LeastRate leastRate;
    bool beginningWasTaken = false;
    bool beginningWasRefused = false;
    bool isMisplaced = false;
    bool wasMisplaced = false;
    int storageFault = 0;  // of the system, when the handler refused the beginning
    bool over = false;
    bool callsFinish = false;
    bool handlerSawIt = false;  // a session may have begun
    bool finishedWell = false;
    bool late = false;
    Answer result;
};

}  // namespace KxNTamberWebApi
