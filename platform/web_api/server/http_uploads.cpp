// The uploads of a connection.
#include <algorithm>
#include <boost/asio/post.hpp>
#include <memory>
#include <utility>

#include "platform/web_api/server/http_connection.h"
#include "platform/web_api/server/upload.h"

namespace KxNTamberWebApi {

using KxNNet::mustWait;
using KxNNet::Outcome;

namespace {

constexpr const char* TOO_MANY_UPLOADS = "Too many uploads are under way";

}  // namespace

/// Suspends the coroutine until what `begin` is given was called, on any thread, and gives what it was called with.
template <typename Begin>
KxNNet::Task<bool> HttpConnection::untilDecided(Begin begin) {
    using Awaitable = boost::asio::use_awaitable_t<KxNNet::Executor>;
    bool decided = false;
    Awaitable resumed;
    co_await boost::asio::async_initiate<Awaitable, void()>(
        [this, &begin, &decided](auto&& handler) {
            // The functions that others keep are copied.
            auto resume = std::make_shared<std::decay_t<decltype(handler)>>(std::forward<decltype(handler)>(handler));
            begin([this, &decided, resume = std::move(resume)](bool decision) {
                decided = decision;
                boost::asio::post(core.context, [resume] { std::move (*resume)(); });
            });
        },
        resumed);
    co_return decided;
}

KxNNet::Task<void> HttpConnection::takeUpload(Exchange& exchange) {
    UploadRequest request{};
    if (const auto refusal = describeUpload(exchange, core.settings, request)) {
        exchange.refuse(refusal->status, refusal->detail);
        co_return;
    }
    const std::size_t size = Upload::beginningSize(request, *exchange.body, core.limits);
    const bool hasMemory = size == 0 || co_await untilDecided([&](auto decide) {
                               core.uploadMemory.ask({exchange.caller.identity, size, 0, decide});
                           });
    if (!hasMemory) {
        exchange.refuse(503, TOO_MANY_UPLOADS);
        co_return;
    }
    FairShare memory = size == 0 ? FairShare() : FairShare(core.uploadMemory, exchange.caller.identity, size);
    if (!co_await sendContinue(exchange)) {
        co_return;
    }
    Upload upload(request, core.served.at(request.endpoint).registration, *stream, *exchange.body, core.limits,
                  core.graceIsOver, std::move(memory));
    if (!co_await collectBeginning(upload)) {
        co_return;
    }
    if (!upload.isOver() && !co_await carryUpload(upload, exchange)) {
        exchange.refuse(503, TOO_MANY_UPLOADS);
        co_return;
    }
    isLate = isLate || upload.isLate();
    exchange.uploadedName = upload.name();
    exchange.uploadedBytes = upload.size();
    exchange.response.answer = std::move(upload.answer());
}

/// Waits until an upload can go on on a thread, or is over. False when the client has gone.
KxNNet::Task<bool> HttpConnection::collectBeginning(Upload& upload) {
    while (!upload.hasBeginning()) {
        const Outcome outcome = upload.collectSome();
        if (mustWait(outcome)) {
            const auto patience = std::min(core.limits.progress, upload.rate().patience());
            const std::int64_t begin = KxNNet::coarseMilliseconds();
            if (patience.count() == 0) {
                upload.giveUpWaiting();
                break;
            }
            deadline.set(patience);
            co_await stream->until(outcome);
            upload.rate().waited(std::chrono::milliseconds(KxNNet::coarseMilliseconds() - begin));
        } else if (outcome == Outcome::done) {
            // Others have their turn, however fast this one sends.
            co_await boost::asio::post(core.context, boost::asio::use_awaitable_t<KxNNet::Executor>());
        } else if (isLate) {
            upload.giveUpWaiting();
        } else {
            co_return false;
        }
    }
    deadline.clear();
    co_return true;
}

/// Lends the stream to upload threads until they have done with it. False when there was none.
KxNNet::Task<bool> HttpConnection::carryUpload(Upload& upload, const Exchange& exchange) {
    UploadThreads::Job job;
    job.identity = exchange.caller.identity;
    job.lasts = core.settings.uploadKind(exchange.match.endpoint->operationId).lasts;
    job.needsClean = !upload.bringsFile();
    job.carry = [&upload](bool mayHoldSession) { return upload.run(mayHoldSession); };
    stream->lend();
    for (;;) {
        const bool wasCarried = co_await untilDecided([&](auto decide) {
            job.done = decide;
            core.uploads.submit(job);
        });
        if (!wasCarried || !upload.wantsCleanThread()) {
            stream->takeBack();
            co_return wasCarried;
        }
        job.needsClean = true;
    }
}

}  // namespace KxNTamberWebApi
