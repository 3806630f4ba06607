// GET /containers/{name}/stats: what a container uses, from the kernel's own counters.
#include "KxClock.h"
#include "KxJson.h"
#include "platform/console/containers/containers.h"
#include "platform/console/containers/counters.h"
#include "platform/console/time_text.h"

namespace KxNConsole {

using KxNJson::json;

namespace {

json orNull(const std::optional<std::uint64_t>& number) {
    return number ? json(*number) : json();
}

}  // namespace

void containerStats(const Call& call) {
    json inspection;
    if (!call.isStarted() || !inspect(call, inspection)) {
        return;
    }
    const json pid = inspection.value("/State/Pid"_json_pointer, json());
    const json id = inspection.value("Id", json());
    std::optional<Counters> read;
    if (pid.is_number_integer() && pid.get<std::int64_t>() > 0 && id.is_string()) {
        read = readCounters("/proc/" + std::to_string(pid.get<std::int64_t>()), id.get_ref<const std::string&>());
    }
    if (!read) {
        call.conflict("Container '" + std::string(call.name()) + "' is not running");
        return;
    }
    const Counters& counters = *read;
    call.answer(200, {{"Time", timeText(KxCVorrelClock::utcMilliseconds())},
                      {"CpuNanoseconds", orNull(counters.cpuNanoseconds)},
                      {"MemoryBytes", orNull(counters.memoryBytes)},
                      {"MemoryLimitBytes", orNull(counters.memoryLimitBytes)},
                      {"Processes", orNull(counters.processes)},
                      {"ReadBytes", orNull(counters.readBytes)},
                      {"WrittenBytes", orNull(counters.writtenBytes)},
                      {"ReceivedBytes", orNull(counters.receivedBytes)},
                      {"SentBytes", orNull(counters.sentBytes)}});
}

}  // namespace KxNConsole
