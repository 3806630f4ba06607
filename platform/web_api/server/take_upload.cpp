#include "platform/web_api/server/take_upload.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <utility>

#include "platform/web_api/server/upload.h"

namespace KxNTamberWebApi {

using KxNNet::mustWait;
using KxNNet::Outcome;

namespace {

void refuseForWant(Exchange& exchange, const ServerCore& core) {
    exchange.refuse(503, core.isStopping ? "The service is stopping" : "Too many uploads are under way");
}

/// Waits until an upload can go on on a thread, or is over. False when the client has gone.
KxNNet::Task<bool> collectBeginning(Upload& upload, ClientStream& client, ServerCore& core) {
    while (!upload.hasBeginning()) {
        const Outcome outcome = upload.collectSome();
        if (mustWait(outcome)) {
            const auto patience = std::min(core.limits.progress, upload.rate().patience());
            const std::int64_t begin = KxNNet::coarseMilliseconds();
            if (patience.count() == 0) {
                upload.giveUpWaiting();
                break;
            }
            client.expectWithin(patience);
            co_await client.stream().until(outcome);
            upload.rate().waited(std::chrono::milliseconds(KxNNet::coarseMilliseconds() - begin));
        } else if (outcome == Outcome::done) {
            // Others have their turn, however fast this one sends.
            co_await boost::asio::post(core.context, boost::asio::use_awaitable_t<KxNNet::Executor>());
        } else if (client.isLate()) {
            upload.giveUpWaiting();
        } else {
            co_return false;
        }
    }
    client.expectNothing();
    co_return true;
}

/// Lends the stream to upload threads until they have done with it. False when there was none.
KxNNet::Task<bool> carryUpload(Upload& upload, const Exchange& exchange, ClientStream& client, ServerCore& core) {
    UploadThreads::Job job;
    job.identity = exchange.caller.identity;
    job.lasts = core.settings.uploadKind(exchange.match.endpoint->operationId).lasts;
    job.needsClean = !upload.bringsFile();
    job.carry = [&upload](bool mayHoldSession) { return upload.run(mayHoldSession); };
    client.stream().lend();
    for (;;) {
        const bool wasCarried = co_await KxNNet::untilCalled(core.context.get_executor(), [&](auto resume) {
            job.done = resume;
            core.uploads.submit(job);
        });
        if (!wasCarried || !upload.wantsCleanThread()) {
            client.stream().takeBack();
            co_return wasCarried;
        }
        job.needsClean = true;
    }
}

}  // namespace

KxNNet::Task<void> takeUpload(Exchange& exchange, ClientStream& client, ServerCore& core) {
    UploadRequest request{};
    if (const auto refusal = describeUpload(exchange, core.settings, request)) {
        exchange.refuse(refusal->status, refusal->detail);
        co_return;
    }
    const std::size_t size = Upload::beginningSize(request, *exchange.body, core.limits);
    const bool hasMemory = size == 0 || co_await KxNNet::untilCalled(core.context.get_executor(), [&](auto decide) {
                               core.uploadMemory.ask({exchange.caller.identity, size, 0, decide});
                           });
    if (!hasMemory) {
        refuseForWant(exchange, core);
        co_return;
    }
    FairShare memory = size == 0 ? FairShare() : FairShare(core.uploadMemory, exchange.caller.identity, size);
    if (!co_await client.sendContinue(exchange)) {
        co_return;
    }
    Upload upload(request, core.served.at(request.endpoint).registration, client.stream(), *exchange.body, core.limits,
                  core.graceIsOver, std::move(memory));
    if (!co_await collectBeginning(upload, client, core)) {
        co_return;
    }
    if (!upload.isOver() && !co_await carryUpload(upload, exchange, client, core)) {
        refuseForWant(exchange, core);
        co_return;
    }
    if (upload.isLate()) {
        client.noteLate();
    }
    exchange.uploadedName = upload.name();
    exchange.uploadedBytes = upload.size();
    exchange.response.answer = std::move(upload.answer());
}

}  // namespace KxNTamberWebApi
