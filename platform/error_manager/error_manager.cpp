#include <algorithm>
#include <mutex>
#include <utility>

#include "KxErrorManager.h"
#include "KxMessageManager.h"

namespace {

constexpr int ERROR_LEVEL = 4;

// Guards the lists of all pools: errors are rare, and a pool that never holds one stays two words.
std::mutex& listMutex() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

// The message tables. They are registered before main and unregistered at exit, so this never goes.
struct MessageTables {
    std::mutex mutex;
    std::vector<const KxResText*> tables;
};

MessageTables& messageTables() {
    static MessageTables& tables = *new MessageTables;
    return tables;
}

KxCErrorListPool& masterErrorList() {
    static KxCErrorListPool& list = *new KxCErrorListPool;
    return list;
}

void sendError(const KxCErrorListPool::KxSError& error) {
    const std::string message = KxCErrorManager::findMessage(error.messageId);
    const char* const separator = message.empty() || error.detail.empty() ? "" : ": ";
    KxCMessageManagerClient::getInstance()->sendMessage(ERROR_LEVEL, message + separator + error.detail);
}

}  // namespace

struct KxCErrorListPool::State {
    std::vector<KxSError> errors;
    std::size_t sent = 0;  // that many of `errors`, from the first on, the message manager has
};

KxCErrorListPool::KxCErrorListPool() = default;

KxCErrorListPool::~KxCErrorListPool() = default;

void KxCErrorListPool::addError(std::uint32_t messageId, std::string_view detail) {
    const std::lock_guard lock(listMutex());
    if (!state) {
        state = std::make_unique<State>();
    }
    KxSError& error = state->errors.emplace_back(KxSError{messageId, std::string(detail)});
    if (this == &masterErrorList()) {
        sendError(error);  // a client that is not open yet keeps it
        state->sent = state->errors.size();
    }
    count.fetch_add(1, std::memory_order_release);
}

std::uint32_t KxCErrorListPool::getErrorCount() const {
    return count.load(std::memory_order_acquire);
}

std::vector<KxCErrorListPool::KxSError> KxCErrorListPool::takeErrors() {
    const std::lock_guard lock(listMutex());
    if (!state) {
        return {};
    }
    state->sent = 0;
    return std::exchange(state->errors, {});
}

std::atomic<KxCErrorManager*> KxCErrorManager::instance{nullptr};

KxCErrorManager* KxCErrorManager::getSingleton() {
    static KxCErrorManager* const manager = [] {
        instance.store(new KxCErrorManager);
        return instance.load();
    }();
    return manager;
}

KxCErrorListPool& KxCErrorManager::getMasterErrorList() {
    return masterErrorList();
}

void KxCErrorManager::sendErrorList(KxCErrorListPool& pool, int /*destination: there is only one*/) {
    const std::lock_guard lock(listMutex());
    if (!pool.state) {
        return;
    }
    const std::vector<KxCErrorListPool::KxSError> errors = std::exchange(pool.state->errors, {});
    for (std::size_t i = std::exchange(pool.state->sent, 0); i < errors.size(); ++i) {
        sendError(errors[i]);
    }
}

void KxCErrorManager::_registerMessages(const KxResText* table) {
    const std::lock_guard lock(messageTables().mutex);
    messageTables().tables.push_back(table);
}

void KxCErrorManager::_unregisterMessages(const KxResText* table) {
    const std::lock_guard lock(messageTables().mutex);
    std::erase(messageTables().tables, table);
}

std::string KxCErrorManager::findMessage(std::uint32_t id) {
    const std::lock_guard lock(messageTables().mutex);
    for (const KxResText* table : messageTables().tables) {
        for (; table->text != nullptr; ++table) {
            if (table->id == id && id != 0) {
                return table->text;
            }
        }
    }
    return {};
}
