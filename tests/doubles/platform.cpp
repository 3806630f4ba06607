// Doubles of log, error manager, message manager, clock, configuration, RTOS layer and profiler.
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

namespace {

std::unique_ptr<World>& holder() {
    static auto& instance = *new std::unique_ptr<World>(new World);
    return instance;
}

std::mutex journalMutex;

}  // namespace

World::World() : masterErrors(std::make_unique<KxCErrorListPool>()) {}

void World::note(const std::string& line) {
    const std::lock_guard lock(journalMutex);
    if (isNoted) {
        journal += line + "\n";
    }
}

World& world() {
    return *holder();
}

void reset() {
    holder() = std::make_unique<World>();
}

std::vector<const KxResText*>& messageTables() {
    static auto& tables = *new std::vector<const KxResText*>;
    return tables;
}

}  // namespace KxNDoubles

using KxNDoubles::world;

bool KxCRTE_LOG_IsLevelEnabled(int level) {
    return level >= world().lowestLogLevel;
}

void KxCRTE_LOG_Impl(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) {
        text = nullptr;
    }
    va_end(arguments);
    const std::string line = text != nullptr ? text : "";
    std::free(text);
    const std::string prefix = "Korvex Container Service: ";
    if (level >= world().lowestLogLevel) {
        world().note(std::to_string(level) + ": " +
                     (line.starts_with(prefix) ? line.substr(prefix.size()) : "WITHOUT PREFIX " + line));
    }
}

struct KxCErrorListPool::State {};
KxCErrorListPool::KxCErrorListPool() = default;
KxCErrorListPool::~KxCErrorListPool() = default;
void KxCErrorListPool::addError(std::uint32_t, std::string_view detail) {
    ++count;
    world().note("error added: " + std::string(detail));
}
std::uint32_t KxCErrorListPool::getErrorCount() const {
    return count;
}

std::atomic<KxCErrorManager*> KxCErrorManager::instance{nullptr};
KxCErrorManager* KxCErrorManager::getSingleton() {
    world().note("KxCErrorManager::getSingleton");
    static auto& made = *new KxCErrorManager;
    instance = &made;
    return &made;
}
KxCErrorListPool& KxCErrorManager::getMasterErrorList() {
    world().note("getMasterErrorList");
    return *world().masterErrors;
}
void KxCErrorManager::sendErrorList(KxCErrorListPool&, int destination) {
    world().note("sendErrorList " + std::to_string(destination));
}
void KxCErrorManager::_registerMessages(const KxResText* table) {
    KxNDoubles::messageTables().push_back(table);
}
void KxCErrorManager::_unregisterMessages(const KxResText* table) {
    std::erase(KxNDoubles::messageTables(), table);
}

KxCMessageManagerClient* KxCMessageManagerClient::getInstance() {
    static auto& instance = *new KxCMessageManagerClient;
    return &instance;
}
void KxCMessageManagerClient::init(KxCErrorListPool&) {
    world().note("messages init");
}
void KxCMessageManagerClient::flushMessageBuffer(KxCErrorListPool&, int milliseconds) {
    world().note("flushMessageBuffer " + std::to_string(milliseconds));
}
void KxCMessageManagerClient::closeClient() {
    world().note("closeClient");
}

void KxCVorrelClock::init(KxCErrorListPool&) {
    world().note("clock init");
}

struct KxCCustomConfig::Contents {};
KxCCustomConfig::KxCCustomConfig(std::unique_ptr<Contents> given) : contents(std::move(given)) {}
KxCCustomConfig::~KxCCustomConfig() = default;
KxCCustomConfig* KxCCustomConfig::getInstance() {
    static auto& instance = *new KxCCustomConfig(nullptr);
    return &instance;
}
std::string KxCCustomConfig::getOption(const char* section, const char* option, const char* defaultValue,
                                       bool mandatory) const {
    world().note(std::string("getOption ") + section + " " + option + " " + defaultValue +
                 (mandatory ? " mandatory" : ""));
    const auto found = world().options.find(option);
    return found != world().options.end() ? found->second : defaultValue;
}

namespace KxNRtosAbstraction {

bool isSingletonProcess(int waitMilliseconds) {
    world().note("isSingletonProcess " + std::to_string(waitMilliseconds));
    return world().isSingleton;
}
void installSignalHandler(KxCErrorListPool&, int signalNumber, SignalHandler) {
    world().note("installSignalHandler " + std::to_string(signalNumber));
}
void removeSignalHandler(KxCErrorListPool&, int signalNumber) {
    world().note("removeSignalHandler " + std::to_string(signalNumber));
}
void setServiceInitialized() {
    world().note("setServiceInitialized");
    if (world().onInitialized) {
        world().onInitialized();
    }
}

struct KxCMutex::State {
    std::mutex mutex;
};
KxCMutex::KxCMutex(const char*) : state(std::make_unique<State>()) {}
KxCMutex::~KxCMutex() = default;
bool KxCMutex::lock(int) {
    state->mutex.lock();
    return true;
}
void KxCMutex::unlock() {
    state->mutex.unlock();
}

}  // namespace KxNRtosAbstraction

KxCProfiler& KxCProfiler::getInstance() {
    static auto& instance = *new KxCProfiler;
    return instance;
}
bool KxCProfiler::open(const char* sourceName, std::uint32_t sourceNumber) {
    world().note(std::string("profiler open ") + sourceName + " " + std::to_string(sourceNumber));
    active = world().isProfilerActive;
    return active;
}
std::uint32_t KxCProfiler::registerEvent(const char* name) {
    static std::uint32_t next = 1000;
    world().note(std::string("profiler event ") + name);
    return next++;
}
void KxCProfiler::emit(std::uint32_t, std::uint32_t code, std::uint32_t index) {
    world().note("profiler " + std::to_string(code) + " " + std::to_string(index));
}
void KxCProfiler::close() {
    world().note("profiler close");
    active = false;
}
