#include "platform/web_api/server/client_stream.h"

#include <algorithm>
#include <array>

#include "platform/web_api/http/answer.h"

namespace KxNTamberWebApi {

using KxNNet::mustWait;
using KxNNet::Outcome;
using KxNNet::Step;

namespace {

Step dropSome(KxNNet::Stream& stream) {
    std::array<char, 16 * 1024> dropped;
    return stream.tryRead(dropped);
}

}  // namespace

void ClientStream::expectRequest(std::chrono::milliseconds patience) {
    idle = true;
    deadline.set(patience);
}

void ClientStream::expectWithin(std::chrono::milliseconds patience) {
    idle = false;
    deadline.set(patience);
}

KxNNet::Task<bool> ClientStream::send(std::string_view first, std::string_view second) {
    while (!first.empty() || !second.empty()) {
        const std::array<iovec, 2> pieces{
            {{const_cast<char*>(first.data()), first.size()}, {const_cast<char*>(second.data()), second.size()}}};
        const Step step = connected->tryWrite(pieces);
        if (mustWait(step.outcome)) {
            sending = true;
            deadline.set(limits.progress);
            co_await connected->until(step.outcome);
            continue;
        }
        if (step.outcome != Outcome::done) {
            co_return false;
        }
        const std::size_t ofFirst = std::min(step.size, first.size());
        first.remove_prefix(ofFirst);
        second.remove_prefix(step.size - ofFirst);
    }
    sending = false;
    deadline.clear();
    co_return true;
}

KxNNet::Task<bool> ClientStream::sendContinue(const Exchange& exchange) {
    if (!expectsContinue(exchange.request()) || exchange.body->isComplete() || exchange.body->hasBegunToArrive()) {
        co_return true;
    }
    co_return co_await send(CONTINUE_ANSWER, {});
}

void ClientStream::announceEnd() {
    expectRequest(limits.discard);
    connected->shutdownWriting();
}

KxNNet::Task<void> ClientStream::discard(std::size_t limit) {
    for (std::size_t dropped = 0; dropped < limit;) {
        const Step step = dropSome(*connected);
        if (mustWait(step.outcome)) {
            co_await connected->until(step.outcome);
        } else if (step.outcome != Outcome::done) {
            co_return;
        }
        dropped += step.size;
    }
}

void ClientStream::sweep(std::int64_t now) {
    if (!deadline.hasPassed(now)) {
        return;
    }
    if (idle) {
        connected->shutdown();
    } else if (sending || late) {
        connected->cut();
    } else {
        late = true;
        connected->shutdownReading();
    }
}

void ClientStream::leaveIfIdle() {
    if (idle) {
        connected->shutdown();
    }
}

}  // namespace KxNTamberWebApi
