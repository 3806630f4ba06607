#include "platform/web_api/server/upload.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/web_api/server/operation.h"

namespace KxNTamberWebApi {

namespace {

constexpr const char* UPLOAD_FAILED = "Upload failed";

bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

}  // namespace

Upload::Upload(const UploadRequest& uploadRequest, std::shared_ptr<KxCHandler::Registration> handlerRegistration,
               Transport& connection, RequestBuffer& readAhead, BodyDecoder& bodyDecoder,
               KxNNet::Deadline& connectionDeadline, const Limits& serverLimits)
    : request(uploadRequest),
      registration(std::move(handlerRegistration)),
      transport(connection),
      buffered(readAhead),
      body(bodyDecoder),
      deadline(connectionDeadline),
      limits(serverLimits),
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
    deadline.clear();
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
            form ? passForm(bytes) : passRaw(bytes);
        }
    }
    if (!isOver) {
        endBody();
    }
}

/// The next bytes of the body; sets `isOver` when there are none.
std::string_view Upload::readPiece() {
    deadline.set(limits.progress);
    error_code error;
    const std::string_view pending = buffered.pending();
    if (!pending.empty() || body.isChunked()) {
        const BodyDecoder::Step step =
            body.decode(pending.data(), pending.size(), piece.get(), limits.uploadBuffer, error);
        if (error) {
            refuse(400, "The body is not well-formed: " + error.message());
            return {};
        }
        buffered.consume(step.consumed);
        if (step.produced > 0) {
            return mayGrowBy(step.produced) ? std::string_view(piece.get(), step.produced) : std::string_view();
        }
        if (step.consumed > 0) {
            return {};
        }
    }
    asio::mutable_buffer target = buffered.prepare();
    if (!body.isChunked()) {
        target = {piece.get(),
                  static_cast<std::size_t>(std::min<std::uint64_t>(limits.uploadBuffer, body.remaining()))};
    } else if (target.size() == 0) {
        refuse(400, "The body is not well-formed: a chunk's head is too long");
        return {};
    }
    const std::size_t got = transport.readBlocking(target, error);
    if (got == 0) {
        if (deadline.hasPassed(KxNNet::coarseMilliseconds())) {
            refuse(408, "The body did not arrive in time");
        }
        isOver = true;
        return {};
    }
    if (body.isChunked()) {
        buffered.commit(got);
        return {};
    }
    body.tookDirectly(got);
    return mayGrowBy(got) ? std::string_view(piece.get(), got) : std::string_view();
}

bool Upload::mayGrowBy(std::size_t size) {
    received += size;
    if (request.maximumSize != 0 && received > request.maximumSize) {
        refuse(413, "The upload is larger than " + std::to_string(request.maximumSize) + " bytes");
        return false;
    }
    return true;
}

bool Upload::passRaw(std::string_view bytes) {
    return passChunk(bytes);
}

bool Upload::passForm(std::string_view bytes) {
    if (form->feed(bytes) == MultipartReader::Status::failed) {
        refuse(400, form->error());
    }
    return !isOver;
}

void Upload::endBody() {
    if (form && form->finish() == MultipartReader::Status::failed) {
        refuse(400, form->error());
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
    deadline.clear();  // which is the client's; a disk may take its time
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
    deadline.clear();
    KxNJson::json content;
    if (request.hasBody) {
        content = {{"fileName", fileName}, {"size", offset}};
    }
    KxCResponse::State state;
    callOperation(registration, request.endpoint, request.hasBody ? &content : nullptr, request.values, state);
    finishedWell = isSuccess(state.answer.status) || state.answer.status == 400;
    result = std::move(state.answer);
    if (chunks == Chunks::firstRefused && isSuccess(result.status)) {
        result = makeRefusal(500, UPLOAD_FAILED);
    }
}

void Upload::refuse(int status, std::string_view detail) {
    result = makeRefusal(status, detail);
    isOver = true;
}

}  // namespace KxNTamberWebApi
