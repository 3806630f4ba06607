// Doubles of log, error manager, message manager, clock, configuration, RTOS layer and profiler. Their singletons are
// never destroyed: what runs at exit uses them.
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "KxClock.h"
#include "KxCustomConfig.h"
#include "KxLog.h"
#include "KxMessageManager.h"
#include "KxProfiler.h"
#include "KxRtos.h"
#include "tests/doubles/World.h"

namespace KxNDoubles {

static std::unique_ptr<World>& holder() {
    static auto& instance = *new std::unique_ptr<World>(new World);
    return instance;
}

World& world() { return *holder(); }

void reset() { holder() = std::make_unique<World>(); }

World& World::addLine(const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    journal += line + "\n";
    return *this;
}

std::vector<const KxResText*>& messageTables() {
    static auto& tables = *new std::vector<const KxResText*>;
    return tables;
}

}  // namespace KxNDoubles

using KxNDoubles::note;
using KxNDoubles::succeeds;
using KxNDoubles::world;

bool KxCRTE_LOG_IsLevelEnabled(int level) { return level >= world().lowestLogLevel; }

void KxCRTE_LOG_Impl(int level, const char* format, ...) {
    if (level < world().lowestLogLevel) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    char* formatted = nullptr;
    const std::string text = vasprintf(&formatted, format, arguments) < 0 ? "" : formatted;
    va_end(arguments);
    std::free(formatted);
    const std::string prefix = "Korvex Container Service: ";
    note(level, ": ", text.starts_with(prefix) ? text.substr(prefix.size()) : "WITHOUT PREFIX " + text);
}

struct KxCErrorListPool::State {};
KxCErrorListPool::KxCErrorListPool() = default;
KxCErrorListPool::~KxCErrorListPool() = default;
void KxCErrorListPool::addError(std::uint32_t, std::string_view detail) {
    ++count;
    note("error added: ", detail);
}
std::uint32_t KxCErrorListPool::getErrorCount() const { return count; }

std::atomic<KxCErrorManager*> KxCErrorManager::instance{nullptr};
KxCErrorManager* KxCErrorManager::getSingleton() {
    note("KxCErrorManager::getSingleton");
    static auto& made = *new KxCErrorManager;
    return instance = &made;
}
KxCErrorListPool& KxCErrorManager::getMasterErrorList() { return *note("getMasterErrorList").masterErrors; }
void KxCErrorManager::sendErrorList(KxCErrorListPool&, int destination) { note("sendErrorList ", destination); }
void KxCErrorManager::_registerMessages(const KxResText* table) { KxNDoubles::messageTables().push_back(table); }
void KxCErrorManager::_unregisterMessages(const KxResText* table) { std::erase(KxNDoubles::messageTables(), table); }

KxCMessageManagerClient* KxCMessageManagerClient::getInstance() {
    static auto& instance = *new KxCMessageManagerClient;
    return &instance;
}
void KxCMessageManagerClient::init(KxCErrorListPool&) { note("messages init"); }
void KxCMessageManagerClient::flushMessageBuffer(KxCErrorListPool&, int milliseconds) {
    note("flushMessageBuffer ", milliseconds);
}
void KxCMessageManagerClient::closeClient() { note("closeClient"); }

void KxCVorrelClock::init(KxCErrorListPool&) { note("clock init"); }
std::int64_t KxCVorrelClock::utcMilliseconds() { return world().utcMilliseconds; }
std::int64_t KxCVorrelClock::monotonicMilliseconds() { return world().monotonicMilliseconds; }

struct KxCCustomConfig::Contents {};
KxCCustomConfig::KxCCustomConfig(std::unique_ptr<Contents> given) : contents(std::move(given)) {}
KxCCustomConfig::~KxCCustomConfig() = default;
KxCCustomConfig* KxCCustomConfig::getInstance() {
    static auto& instance = *new KxCCustomConfig(nullptr);
    return &instance;
}
std::string KxCCustomConfig::getOption(const char* section, const char* option, const char* defaultValue,
                                       bool mandatory) const {
    note("getOption ", section, " ", option, " ", defaultValue, mandatory ? " mandatory" : "");
    return world().options.try_emplace(option, defaultValue).first->second;
}

namespace KxNRtosAbstraction {

bool isSingletonProcess(int waitMilliseconds) { return succeeds("isSingletonProcess", " ", waitMilliseconds); }
void installSignalHandler(KxCErrorListPool&, int signalNumber, SignalHandler) {
    note("installSignalHandler ", signalNumber);
}
void removeSignalHandler(KxCErrorListPool&, int signalNumber) { note("removeSignalHandler ", signalNumber); }
void setServiceInitialized() {
    note("setServiceInitialized");
    if (world().onInitialized) {
        world().onInitialized();
    }
}

struct KxCMutex::State : std::mutex {};
KxCMutex::KxCMutex(const char*) : state(std::make_unique<State>()) {}
KxCMutex::~KxCMutex() = default;
bool KxCMutex::lock(int) {
    state->lock();
    return true;
}
void KxCMutex::unlock() { state->unlock(); }

}  // namespace KxNRtosAbstraction

KxCProfiler& KxCProfiler::getInstance() {
    static auto& instance = *new KxCProfiler;
    return instance;
}
bool KxCProfiler::open(const char* sourceName, std::uint32_t sourceNumber) {
    return active = succeeds("profiler open", " ", sourceName, " ", sourceNumber);
}
std::uint32_t KxCProfiler::registerEvent(const char* name) {
    static std::uint32_t next = 1000;
    note("profiler event ", name, " is ", ++next);
    return next;
}
void KxCProfiler::emit(std::uint32_t event, std::uint32_t code, std::uint32_t index) {
    note("profiler ", event, " ", code, " ", index);
}
void KxCProfiler::close() {
    note("profiler close");
    active = false;
}
