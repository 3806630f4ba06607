#include "platform/console/metrics/get_metrics.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>

#include "KxClock.h"
#include "KxTamberWebApi/KxAudit.h"
#include "platform/console/device/storage.h"
#include "platform/console/metrics/metrics_text.h"
#include "platform/console/parts.h"

namespace KxNConsole {

namespace {

std::size_t countEntries(const char* directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory), ::closedir);
    std::size_t count = 0;
    for (const dirent* entry = nullptr; entries && (entry = ::readdir(entries.get())) != nullptr;) {
        count += entry->d_name[0] != '.' ? 1 : 0;
    }
    return count;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Under the names that all programs use.
void writeProcess(const Call& call, MetricsText& metrics) {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    metrics.begin("process_cpu_seconds_total", "counter", "CPU time, user and system.");
    metrics.add(seconds(usage.ru_utime) + seconds(usage.ru_stime));
    unsigned long resident = 0;
    if (const std::unique_ptr<FILE, int (*)(FILE*)> memory(std::fopen("/proc/self/statm", "re"), std::fclose);
        memory && std::fscanf(memory.get(), "%*u %lu", &resident) == 1) {
        metrics.begin("process_resident_memory_bytes", "gauge", "Resident memory.");
        metrics.add(resident * static_cast<unsigned long>(::sysconf(_SC_PAGESIZE)));
    }
    metrics.begin("process_threads", "gauge", "Threads.");
    metrics.add(countEntries("/proc/self/task"));
    metrics.begin("process_open_fds", "gauge", "Open descriptors.");
    metrics.add(countEntries("/proc/self/fd"));
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    metrics.begin("process_max_fds", "gauge", "The most descriptors that may be open.");
    metrics.add(limit.rlim_cur);
    metrics.begin("process_start_time_seconds", "gauge", "Start, in seconds since the Unix epoch.");
    metrics.add((KxCVorrelClock::utcMilliseconds() - KxCVorrelClock::monotonicMilliseconds() + call.parts.begunAt) /
                1000);
}

void writeContainers(const Call& call, MetricsText& metrics) {
    const KxNContainer::KxSPodmanState podman = call.container.GetPodmanState();
    metrics.begin("kx_podman_up", "gauge", "1 when Podman answers.");
    metrics.add(podman.isAnswering ? 1 : 0);
    metrics.begin("kx_podman_restarts_total", "counter", "How often Podman was brought up again.");
    metrics.add(podman.restarts);

    const auto containers = call.container.GetKnownContainers();
    std::map<std::string_view, std::size_t> byState = {{"created", 0}, {"exited", 0}, {"paused", 0}, {"running", 0}};
    for (const auto& container : containers) {
        ++byState[container.state];
    }
    metrics.begin("kx_containers", "gauge", "Containers by state.");
    for (const auto& [state, count] : byState) {
        metrics.add(count, {{"state", state}});
    }
    metrics.begin("kx_container_starts_total", "counter", "How often a container was started while this service ran.");
    for (const auto& container : containers) {
        metrics.add(container.starts, {{"container", container.name}});
    }
}

void writeDevice(const Call& call, MetricsText& metrics) {
    const std::vector<Volume> volumes = readVolumes();
    metrics.begin("kx_storage_free_bytes", "gauge", "Free bytes of the volumes that the service stores on.");
    for (const Volume& volume : volumes) {
        metrics.add(volume.freeBytes, {{"volume", volume.what}});
    }
    metrics.begin("kx_storage_size_bytes", "gauge", "Size of the volumes that the service stores on.");
    for (const Volume& volume : volumes) {
        metrics.add(volume.totalBytes, {{"volume", volume.what}});
    }
    if (const auto end = call.parts.health.look(call.container).certificateEnd) {
        metrics.begin("kx_certificate_remaining_seconds", "gauge", "Until the server's certificate ends.");
        metrics.add((*end - KxCVorrelClock::utcMilliseconds()) / 1000);
    }
    const KxNTamberWebApi::KxSAuditState audit = KxNTamberWebApi::getAuditState();
    metrics.begin("kx_audit_lost_total", "counter", "Entries of the audit record that could not be written.");
    metrics.add(audit.lost);
    metrics.begin("kx_audit_failing", "gauge", "1 when the last attempt to write the audit record failed.");
    metrics.add(audit.problem.empty() ? 0 : 1);
}

}  // namespace

void getMetrics(const Call& call) {
    MetricsText metrics;
    call.parts.requests.write(metrics);
    writeContainers(call, metrics);
    writeDevice(call, metrics);
    writeProcess(call, metrics);
    call.response.setTextBody(call.pool, 200, "text/plain; version=0.0.4; charset=utf-8", metrics.text());
}

}  // namespace KxNConsole
