// Compose commands on the files of the compose-files directory.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "KxJsonFwd.h"
#include "platform/container_runtime/compose/compose_project.h"
#include "platform/net/cancellation.h"
#include "platform/process/run_to_end.h"

namespace KxNContainer {

/// What the commands work with.
struct ComposeSetup {
    std::string directory;                                  ///< of the compose files, with a trailing slash
    std::vector<std::string> tools;                         ///< the first that can be executed is used
    std::function<std::vector<std::string>()> environment;  ///< for the tool; says where it reaches Podman
    AskPodman askPodman;
    std::chrono::milliseconds timeLimit = std::chrono::minutes(10);  ///< of a command with its wait for others
};

enum class ComposeCommand { Create, Start, Stop, Remove };

/// Runs docker-compose as a child process. Commands on one file run one after the other, those on different files side
/// by side. Any thread.
class ComposeCommands {
public:
    enum Code : int {
        DONE = 0,
        CREATED = 1,
        TOOL_NOT_RUN = 2,
        BAD_FILE = 3,
        NO_SUCH_FILE = 4,
        FAILED = 5,
        TIMED_OUT = 6,
        NOTHING_TO_DO = 7,
        NO_PODMAN = 8
    };

    explicit ComposeCommands(ComposeSetup setup);

    /// `result` becomes {"Message", "Name", "Command", "ExitCode", "Output"}; the exit code is null when the tool did
    /// not run to its end. No exceptions.
    Code run(ComposeCommand command, const std::string& fileName, KxNJson::json& result);

    /// Ends the commands that run and those that wait, and returns when none is left. Later ones fail until `resume`.
    void stop();
    void resume();

private:
    class Turn;
    struct Job;

    Code runJob(Job& job);
    Code runInTurn(Job& job);
    Code interpret(Job& job, const KxNProcess::RunResult& outcome, const ComposeProject& before);
    Code explainFailure(Job& job, const KxNProcess::RunResult& outcome);
    Code judgeSuccess(Job& job, const ComposeProject& before);
    KxNProcess::RunResult runTool(const Job& job, const std::array<const char*, 2>& words);

    const ComposeSetup setup;
    std::mutex mutex;  // guards what follows
    std::condition_variable changed;
    std::set<std::string> busyFiles;
    std::size_t runningCommands = 0;
    std::shared_ptr<KxNNet::Cancellation> cancellation;  // of the commands that were begun since `resume`
};

}  // namespace KxNContainer
