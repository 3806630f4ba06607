#include "platform/web_api/server/upload.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/common/atomic_file.h"
#include "platform/common/storage_room.h"
#include "platform/net/loop_stream.h"
#include "platform/web_api/http/content_disposition.h"
#include "platform/web_api/operation/operation.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;
using KxNNet::Outcome;

namespace {

constexpr const char* UPLOAD_FAILED = "Upload failed";

/// Bytes of a form read at once while its file begins; with them come the last bytes of the beginning, and what a
/// boundary might have been.
constexpr std::size_t FORM_PIECE = 16 * 1024;
constexpr std::size_t FORM_OVERHANG = FORM_PIECE + 128;

/// From here on a file is read and written in few large pieces, which is faster; for a shorter one the memory would
/// cost more than it saves.
constexpr std::uint64_t LONG_FILE = 1024 * 1024;

Refusal tooLarge(std::uint64_t maximumSize) {
    return {413, "The upload is larger than " + std::to_string(maximumSize) + " bytes"};
}

Refusal noRoom(std::uint64_t size, std::uint64_t room) {
    return {507, "The upload needs " + std::to_string(size) + " bytes where " + std::to_string(room) + " are free"};
}

bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

}  // namespace

std::optional<Refusal> describeUpload(const Exchange& exchange, const ServerSettings& settings, UploadRequest& upload) {
    const RequestHead& request = exchange.request();
    const std::uint64_t declared = exchange.body->remaining();
    upload.endpoint = exchange.match.endpoint;
    upload.caller = exchange.caller;
    upload.values = exchange.match.values();
    upload.target = request.target();
    upload.contentType = request[field::content_type];
    upload.maximumSize = settings.maxUploadBytes;
    upload.kind = &settings.uploadKind(upload.endpoint->operationId);
    const bool hasDisposition = request.count(field::content_disposition) > 0;
    // A length of 0 is an empty file when the head describes one, and else a request without a body.
    upload.hasBody = !exchange.body->isComplete() ||
                     (request.count(field::content_length) > 0 && (hasDisposition || !upload.contentType.empty()));
    const auto type = parseContentType(upload.contentType);
    const bool isForm = type && type->mediaType == "multipart/form-data";
    if (isForm) {
        upload.boundary = type->boundary;
        if (upload.boundary.empty()) {
            return Refusal{400, "The form has no usable boundary"};
        }
    } else if (hasDisposition) {
        std::string error;
        const auto disposition = parseContentDisposition(request[field::content_disposition], error);
        if (!disposition) {
            return Refusal{400, "Content-Disposition is not well-formed: " + error};
        }
        upload.fileName = disposition->fileName;
    }
    if (!isForm && upload.maximumSize != 0 && declared > upload.maximumSize) {
        return tooLarge(upload.maximumSize);
    }
    const auto room = upload.kind->roomForFile();
    return room && declared > *room ? std::optional(noRoom(declared, *room)) : std::nullopt;
}

Upload::Upload(const UploadRequest& uploadRequest, std::shared_ptr<KxCHandler::Registration> handlerRegistration,
               KxNNet::Stream& connection, RequestBody& requestBody, const Limits& serverLimits,
               const KxNNet::Cancellation& serverEnding, FairShare memoryOfBeginning)
    : request(uploadRequest),
      registration(std::move(handlerRegistration)),
      stream(connection),
      body(requestBody),
      limits(serverLimits),
      ending(serverEnding),
      memory(std::move(memoryOfBeginning)),
      beginningRoom(beginningSize(request, body, limits)),
      fileName(uploadRequest.fileName),
      hasFile(request.hasBody && request.boundary.empty()),
      leastRate(limits.uploadRate, limits.uploadRateWindow) {
    beginning.reset(new char[beginningRoom]);
    if (!request.boundary.empty()) {
        form = std::make_unique<MultipartReader>(request.boundary, static_cast<MultipartFileSink&>(*this));
    }
    if (request.hasBody && body.isComplete()) {
        endBody();
    }
}

std::size_t Upload::beginningSize(const UploadRequest& request, const RequestBody& body, const Limits& limits) {
    if (body.isComplete()) {
        return 0;
    }
    const std::size_t most = limits.uploadBeginning + (request.boundary.empty() ? 0 : FORM_OVERHANG);
    const std::uint64_t declared = body.remaining();
    return declared == 0 ? most : static_cast<std::size_t>(std::min<std::uint64_t>(declared, most));
}

Outcome Upload::collectSome() {
    std::array<char, FORM_PIECE> piece;
    return takePiece(form ? std::span<char>(piece) : std::span(beginning.get() + fileSize, beginningRoom - fileSize));
}

/// Takes the next bytes of the body, which are put into `room`.
Outcome Upload::takePiece(std::span<char> room) {
    const RequestBody::Piece next = body.next(room);
    if (!next.problem.empty()) {
        refuse({400, next.problem});
        return Outcome::done;
    }
    if (next.outcome != Outcome::done) {
        return next.outcome;
    }
    leastRate.received(next.bytes.size());
    if (form && form->feed(next.bytes) == MultipartReader::Status::failed) {
        refuse({400, form->error()});
    } else if (!form && !next.bytes.empty()) {
        onFileData(next.bytes);
    }
    if (!over && body.isComplete()) {
        endBody();
    }
    return Outcome::done;
}

void Upload::endBody() {
    if (form && form->finish() == MultipartReader::Status::failed) {
        refuse({400, form->error()});
    }
}

void Upload::giveUpWaiting() {
    late = true;
    refuse({408, "The body did not arrive in time"});
}

bool Upload::run(bool mayHoldSession) noexcept {
    isMisplaced = false;
    try {
        carryBody(mayHoldSession);
        if (callsFinish) {
            finish(mayHoldSession);
        }
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: upload %s failed: %s", request.endpoint->operationId,
                   failure.what());
        result = makeRefusal(500, UPLOAD_FAILED);
    } catch (...) {
        result = makeRefusal(500, UPLOAD_FAILED);
    }
    return finishedWell ? false : mayHoldSession || handlerSawIt;
}

void Upload::carryBody(bool mayHoldSession) {
    if (hasFile && !passBeginning(mayHoldSession)) {
        return;
    }
    std::unique_ptr<char[]> large;
    while (request.hasBody && !over && !body.isComplete()) {
        if (!large && fileSize >= LONG_FILE) {
            beginning.reset();
            large.reset(new char[limits.uploadBuffer]);
        }
        const std::span room =
            large ? std::span(large.get(), limits.uploadBuffer) : std::span(beginning.get(), beginningRoom);
        const Outcome outcome = takePiece(room);
        over = over || (outcome != Outcome::done && (!KxNNet::mustWait(outcome) || !waitFor(outcome)));
    }
    callsFinish = !over;
}

/// Waits for the client on this thread. False when it takes too long, or has no time left.
bool Upload::waitFor(Outcome wanted) {
    using Clock = std::chrono::steady_clock;
    const auto patience = std::min(limits.progress, leastRate.patience());
    const Clock::time_point begin = Clock::now();
    short happened = 0;
    const Outcome outcome =
        stream.wait(wanted == Outcome::wantsRead ? POLLIN : POLLOUT, {ending, begin + patience}, happened);
    leastRate.waited(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin));
    if (outcome == Outcome::timedOut) {
        giveUpWaiting();
    }
    return outcome == Outcome::done;
}

/// Gives the handler what was collected. False when the upload does not go on on this thread.
bool Upload::passBeginning(bool mayHoldSession) {
    if (!hasRoomFor({beginning.get(), static_cast<std::size_t>(fileSize)})) {
        return false;
    }
    switch (offer({beginning.get(), static_cast<std::size_t>(fileSize)})) {
        case Taken::yes:
            beginningWasTaken = true;
            memory.giveBack();  // there are only so many threads
            return true;
        case Taken::no:
            isMisplaced = !over && mayHoldSession && !wasMisplaced;
            wasMisplaced = true;
            beginningWasRefused = true;
            callsFinish = !over && !isMisplaced;
            return false;
        case Taken::handlerIsGone:
            return false;
    }
    return false;
}

bool Upload::onFileBegin(const std::string& field, const std::string& name, const std::string&) {
    fieldName = field;
    fileName = name;
    hasFile = true;
    return true;
}

bool Upload::onFileData(std::string_view data) {
    fileSize += data.size();
    if (request.maximumSize != 0 && fileSize > request.maximumSize) {
        refuse(tooLarge(request.maximumSize));
    } else if (!beginningWasTaken) {
        if (form) {  // a raw body was read to where it belongs
            std::copy_n(data.data(), data.size(), beginning.get() + (fileSize - data.size()));
        }
    } else if (hasRoomFor(data) && offer(data) == Taken::no && !over) {
        over = true;
        result = makeRefusal(500, UPLOAD_FAILED);
    }
    return !over;
}

/// Looks before the handler writes, which would take the reserve too, and make a file's name known that then is not
/// whole.
bool Upload::hasRoomFor(std::string_view data) {
    const auto room = request.kind->roomForFile();
    if (room && data.size() > *room) {
        endWithoutRoom(data.size(), *room);
    }
    return !over;
}

/// Ends an upload whose file finds no room: nothing half is left of it, and the bytes are free at once, though the
/// handler may hold the file open.
void Upload::endWithoutRoom(std::uint64_t size, std::uint64_t room) {
    refuse(noRoom(size, room));
    const std::string path = storedPath();
    if (handlerSawIt && !path.empty() && ::truncate(path.c_str(), 0) == 0) {
        ::unlink(path.c_str());
    }
}

/// Where the handler stores the file; empty when that is not known.
std::string Upload::storedPath() const {
    const std::string& name = request.kind->fileName.empty() ? fileName : request.kind->fileName;
    return request.kind->directory.empty() || name.empty() ? "" : request.kind->directory + "/" + name;
}

/// Gives one chunk to the handler.
Upload::Taken Upload::offer(std::string_view data) {
    const HandlerUse use(registration);
    if (use.handler() == nullptr) {
        result = makeDetachedRefusal();
        over = true;
        return Taken::handlerIsGone;
    }
    handlerSawIt = true;
    try {
        const std::uint32_t answered = use.handler()->handleUploadChunk(
            request.endpoint, request.target.c_str(), request.contentType.c_str(), fileName.c_str(), fieldName.c_str(),
            data.data(), offset, static_cast<std::uint32_t>(data.size()));
        if (answered == 0) {
            offset += data.size();
            return Taken::yes;
        }
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: a chunk of upload %s threw: %s",
                   request.endpoint->operationId, failure.what());
    }
    if (!request.kind->directory.empty()) {
        storageFault = KxNCommon::findStorageFault(request.kind->directory, data.size());
    }
    if (KxNCommon::isNoRoom(storageFault)) {
        endWithoutRoom(data.size(), 0);
    }
    return Taken::no;
}

void Upload::finish(bool mayHoldSession) {
    if (!beginningWasTaken && mayHoldSession) {
        // The session that may be left here is not this upload's: a finish phase would take it for that.
        result = makeRefusal(400, "No file was uploaded");
        return;
    }
    KxNJson::json content;
    if (request.hasBody) {
        content = {{"fileName", fileName}, {"size", offset}};
    }
    KxCResponse::State state;
    callOperation(registration, request.endpoint, request.caller, request.hasBody ? &content : nullptr, request.values,
                  state);
    finishedWell = isSuccess(state.answer.status) || state.answer.status == 400;
    result = std::move(state.answer);
    // The operation takes a file that it does not find for one that was not sent, whatever kept it from being stored.
    const bool isToldWrongly = result.status == 400 && storageFault != 0;
    if (beginningWasRefused && (isSuccess(result.status) || isToldWrongly)) {
        result = makeRefusal(500, UPLOAD_FAILED);
    }
    // Compose files, certificates and keys: what was answered outlives a power cut. A large file takes too long for
    // that.
    const std::string path = storedPath();
    if (isSuccess(result.status) && offset <= limits.uploadBeginning && ::access(path.c_str(), F_OK) == 0) {
        KxNCommon::syncFile(path);
    }
}

void Upload::refuse(const Refusal& refusal) {
    result = makeRefusal(refusal.status, refusal.detail);
    over = true;
}

}  // namespace KxNTamberWebApi
