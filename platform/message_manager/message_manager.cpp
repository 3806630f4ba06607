#include <algorithm>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>

#include "KxErrorManager.h"
#include "KxLog.h"
#include "KxMessageManager.h"
#include "platform/log/log_sink.h"

namespace {

constexpr std::size_t MAX_KEPT_MESSAGES = 256;
constexpr const char* FALLBACK_PROGRAM_NAME = "Korvex Container Service";

struct Message {
    int level;
    std::string text;
};

struct Client {
    std::mutex mutex;
    bool isOpen = false;
    std::deque<Message> kept;  // while the client is not open
};

Client& client() {
    static Client& theClient = *new Client;
    return theClient;
}

void writeToLog(const Message& message) {
    std::string program = KxCErrorManager::findMessage(KX_MESSAGE_PROGRAM_NAME);
    if (program.empty()) {
        program = FALLBACK_PROGRAM_NAME;
    }
    KxCRTE_LOG(message.level, "%s: %s", program.c_str(), message.text.c_str());
}

}  // namespace

KxCMessageManagerClient* KxCMessageManagerClient::getInstance() {
    static KxCMessageManagerClient* const instance = new KxCMessageManagerClient;
    return instance;
}

void KxCMessageManagerClient::init(KxCErrorListPool& /*nothing fails here*/) {
    const std::lock_guard lock(client().mutex);
    client().isOpen = true;
    for (const Message& message : client().kept) {
        writeToLog(message);
    }
    client().kept.clear();
}

void KxCMessageManagerClient::sendMessage(int level, std::string_view text) {
    const Message message{level, std::string(text)};
    const std::lock_guard lock(client().mutex);
    if (client().isOpen) {
        writeToLog(message);
        return;
    }
    if (client().kept.size() == MAX_KEPT_MESSAGES) {
        client().kept.pop_front();
    }
    client().kept.push_back(message);
}

void KxCMessageManagerClient::flushMessageBuffer(KxCErrorListPool& pool, int timeoutMilliseconds) {
    const std::chrono::milliseconds timeout(std::max(timeoutMilliseconds, 0));
    if (!LogSink::getInstance().flush(timeout)) {
        pool.addError(0, "The messages did not leave the process within " + std::to_string(timeout.count()) +
                             " ms: standard error is not read");
    }
}

void KxCMessageManagerClient::closeClient() {
    const std::lock_guard lock(client().mutex);
    client().isOpen = false;
}
