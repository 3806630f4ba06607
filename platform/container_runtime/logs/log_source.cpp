#include "platform/container_runtime/logs/log_source.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "KxLog.h"
#include "platform/common/system_text.h"
#include "platform/container_runtime/logs/file/file_reader.h"
#include "platform/container_runtime/logs/journal/journal_reader.h"
#include "platform/container_runtime/logs/watch/log_watch.h"
#include "platform/container_runtime/podman/podman_failure.h"

namespace KxNContainer {

namespace {

/// How often Podman is asked about a container whose end cannot be seen from here.
constexpr std::chrono::milliseconds ASKING_TIME{500};

/// How long Podman is left alone after a failure, and how long before the end it is not asked any more.
constexpr std::chrono::milliseconds RETRY_TIME{200};
constexpr std::chrono::seconds RETRY_MARGIN{1};

std::string inspectionPath(const std::string& containerId) {
    return "/containers/" + containerId + "/json";
}

}  // namespace

Inspection inspectContainer(PodmanClient& podman, const std::string& path, const KxNNet::Cancellation& ending,
                            std::chrono::seconds longest) {
    const auto deadline = std::chrono::steady_clock::now() + longest;
    Inspection inspection{podman.ask({path, KxCCurlHandler::MethodType::GET, {}, {}}, {ending, deadline}), {}};
    if (inspection.reply.status / 100 == 2) {
        inspection.container = ContainerLog::parse(inspection.reply.body);
    }
    return inspection;
}

Inspection inspectPatiently(PodmanClient& podman, const std::string& path, const KxNNet::Cancellation& ending,
                            std::chrono::seconds longest) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(end - std::chrono::steady_clock::now());
        try {
            return inspectContainer(podman, path, ending, left);
        } catch (const PodmanFailure& failure) {
            if (failure.status != PodmanFailure::UNREACHABLE || left <= RETRY_MARGIN || ending.isCancelled()) {
                throw;
            }
        }
        pollfd cancelled{ending.descriptor(), POLLIN, 0};
        ::poll(&cancelled, 1, static_cast<int>(RETRY_TIME.count()));
    }
}

LogSource::LogSource(const LogTools& usedTools, const std::string& name, const ContainerLog& container,
                     const LogRange& range, const std::string& cursor, Until until)
    : tools(usedTools), containerName(name), containerId(container.id) {
    if (container.driver == ContainerLog::Driver::other) {
        throw KxNCommon::systemError("The log driver '" + container.driverName + "'", ENOTSUP);
    }
    const bool isFile = container.driver == ContainerLog::Driver::file;
    if (container.isRunning || until == Until::cancelled) {
        log = tools.watch.follow(container.id, isFile ? container.path : "");
        update(container);
    }
    const bool endsWithRun = until == Until::endOfRun;
    if (isFile) {
        reader = std::make_unique<FileReader>(container.id, container.path, log, endsWithRun, range, cursor);
    } else {
        reader = std::make_unique<JournalReader>(container.id, log, endsWithRun, range, cursor);
    }
}

LogSource::~LogSource() {
    reader.reset();
    if (log) {
        log.reset();
        tools.watch.noteLeaving();
    }
}

LogStep LogSource::next() {
    const LogStep step = reader->next();
    if (step.kind == LogStep::Kind::gap) {
        const auto& bytes = step.gap.bytes;
        const std::string size = bytes ? std::to_string(*bytes) + " bytes" : "a part of unknown size";
        KxCRTE_LOG(3, "Korvex Container Service: Of the log of container '%s' %s cannot be read any more: %s",
                   containerName.c_str(), size.c_str(), step.gap.reason);
    }
    return step;
}

void LogSource::update(const ContainerLog& container) {
    const FollowedLog::Run known = log->run();
    if (!container.isRunning) {
        if (!known.hasEnded && !known.isWatched) {
            log->endRun(container.exitCode);
            log->ringAll();
        }
    } else if (!tools.watch.watchWriter(log, container.process) && known.hasEnded) {
        log->beginRun(false);
    }
}

bool LogSource::wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) {
    const FollowedLog::Run known = run();
    if (known.hasEnded || known.isWatched) {
        return reader->wait(cancellation, longest);
    }
    if (!reader->wait(cancellation, std::min(longest, ASKING_TIME)) && !cancellation.isCancelled()) {
        try {
            const Inspection inspection =
                inspectContainer(tools.podman, inspectionPath(containerId), cancellation, INSPECTION_TIME);
            if (inspection.container) {
                update(*inspection.container);
            } else if (inspection.reply.status == 404) {
                log->endRun(std::nullopt);
            }
        } catch (const PodmanFailure&) {
            // The log goes on whether Podman answers or not.
        }
        return longest > ASKING_TIME;
    }
    return !cancellation.isCancelled();
}

FollowedLog::Run LogSource::run() const {
    return log ? log->run() : FollowedLog::Run{};
}

std::uint64_t LogSource::activity() const {
    return log ? log->activity() : 0;
}

}  // namespace KxNContainer
