#include "platform/web_api/server/upload.h"

#include <poll.h>

#include <exception>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/net/loop_stream.h"
#include "platform/web_api/http/content_disposition.h"
#include "platform/web_api/operation/operation.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;
using KxNNet::Outcome;

namespace {

constexpr const char* UPLOAD_FAILED = "Upload failed";

Refusal tooLarge(std::uint64_t maximumSize) {
    return {413, "The upload is larger than " + std::to_string(maximumSize) + " bytes"};
}

bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

}  // namespace

std::optional<Refusal> describeUpload(const Exchange& exchange, std::uint64_t maximumSize, UploadRequest& upload) {
    const RequestHead& request = exchange.request();
    upload.endpoint = exchange.match.endpoint;
    upload.caller = exchange.caller;
    upload.values = exchange.match.values();
    upload.target = request.target();
    upload.contentType = request[field::content_type];
    upload.maximumSize = maximumSize;
    const bool hasDisposition = request.count(field::content_disposition) > 0;
    // A length of 0 is an empty file when the head describes one, and else a request without a body.
    upload.hasBody = !exchange.body->isComplete() ||
                     (request.count(field::content_length) > 0 && (hasDisposition || !upload.contentType.empty()));
    if (maximumSize != 0 && exchange.body->remaining() > maximumSize) {
        return tooLarge(maximumSize);
    }
    const auto type = parseContentType(upload.contentType);
    if (type && type->mediaType == "multipart/form-data") {
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
    return std::nullopt;
}

Upload::Upload(const UploadRequest& uploadRequest, std::shared_ptr<KxCHandler::Registration> handlerRegistration,
               KxNNet::Stream& connection, RequestBody& requestBody, const Limits& serverLimits,
               const KxNNet::Cancellation& serverEnding)
    : request(uploadRequest),
      registration(std::move(handlerRegistration)),
      stream(connection),
      body(requestBody),
      limits(serverLimits),
      ending(serverEnding),
      fileName(uploadRequest.fileName) {}

bool Upload::run(bool mayHoldSession) noexcept {
    try {
        takeBody();
        if (callsFinish) {
            finish(mayHoldSession);
        }
    } catch (const std::exception& failure) {
        piece.reset();  // it may have been memory that ran out
        KxCRTE_LOG(4, "Korvex Container Service: Web API: upload %s failed: %s", request.endpoint->operationId,
                   failure.what());
        result = makeRefusal(500, UPLOAD_FAILED);
    } catch (...) {
        result = makeRefusal(500, UPLOAD_FAILED);
    }
    piece.reset();
    return finishedWell ? false : mayHoldSession || handlerSawIt;
}

void Upload::takeBody() {
    if (!request.hasBody) {
        callsFinish = true;
        return;
    }
    piece.reset(new char[limits.uploadBuffer]);
    if (!request.boundary.empty()) {
        form = std::make_unique<MultipartReader>(request.boundary, static_cast<MultipartFileSink&>(*this));
    }
    while (!isOver && !body.isComplete()) {
        const std::string_view bytes = readPiece();
        if (!isOver && !bytes.empty()) {
            passPiece(bytes);
        }
    }
    if (!isOver) {
        endBody();
    }
}

/// The next bytes of the body; sets `isOver` when there are none.
std::string_view Upload::readPiece() {
    const RequestBody::Piece next = body.next({piece.get(), limits.uploadBuffer});
    if (!next.problem.empty()) {
        refuse({400, next.problem});
        return {};
    }
    if (next.outcome != Outcome::done) {
        isOver = !KxNNet::mustWait(next.outcome) || !waitFor(next.outcome);
        return {};
    }
    received += next.bytes.size();
    if (request.maximumSize != 0 && received > request.maximumSize) {
        refuse(tooLarge(request.maximumSize));
        return {};
    }
    return next.bytes;
}

/// Waits for the client. False when it takes too long, or has no time left.
bool Upload::waitFor(Outcome wanted) {
    short happened = 0;
    const KxNNet::WaitLimits waitLimits{ending, std::chrono::steady_clock::now() + limits.progress};
    const Outcome outcome = stream.wait(wanted == Outcome::wantsRead ? POLLIN : POLLOUT, waitLimits, happened);
    late = outcome == Outcome::timedOut;
    if (late) {
        refuse({408, "The body did not arrive in time"});
    }
    return outcome == Outcome::done;
}

void Upload::passPiece(std::string_view bytes) {
    if (!form) {
        passChunk(bytes);
    } else if (form->feed(bytes) == MultipartReader::Status::failed) {
        refuse({400, form->error()});
    }
}

void Upload::endBody() {
    if (form && form->finish() == MultipartReader::Status::failed) {
        refuse({400, form->error()});
        return;
    }
    if (!form && chunks == Chunks::none && !passChunk({})) {
        return;
    }
    callsFinish = true;
}

bool Upload::onFileBegin(const std::string& field, const std::string& name, const std::string&) {
    fieldName = field;
    fileName = name;
    return true;
}

bool Upload::onFileData(std::string_view data) {
    return passChunk(data);
}

bool Upload::onFileEnd() {
    return chunks != Chunks::none || passChunk({});
}

/// Gives one chunk to the handler. False when the upload goes no further.
bool Upload::passChunk(std::string_view data) {
    const HandlerUse use(registration);
    if (use.handler() == nullptr) {
        result = makeDetachedRefusal();
        isOver = true;
        return false;
    }
    handlerSawIt = true;
    bool isTaken = false;
    try {
        isTaken = use.handler()->handleUploadChunk(request.endpoint, request.target.c_str(),
                                                   request.contentType.c_str(), fileName.c_str(), fieldName.c_str(),
                                                   data.data() != nullptr ? data.data() : "", offset,
                                                   static_cast<std::uint32_t>(data.size())) == 0;
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: a chunk of upload %s threw: %s",
                   request.endpoint->operationId, failure.what());
    }
    if (isTaken) {
        chunks = Chunks::taken;
        offset += data.size();
        return true;
    }
    isOver = true;
    callsFinish = chunks == Chunks::none;
    if (callsFinish) {
        chunks = Chunks::firstRefused;
    } else {
        chunks = Chunks::laterRefused;
        result = makeRefusal(500, UPLOAD_FAILED);
    }
    return false;
}

void Upload::finish(bool mayHoldSession) {
    if (chunks != Chunks::taken && mayHoldSession) {
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
    if (chunks == Chunks::firstRefused && isSuccess(result.status)) {
        result = makeRefusal(500, UPLOAD_FAILED);
    }
}

void Upload::refuse(const Refusal& refusal) {
    result = makeRefusal(refusal.status, refusal.detail);
    isOver = true;
}

}  // namespace KxNTamberWebApi
