#include "platform/container_runtime/compose/compose_commands.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <exception>
#include <optional>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/common/system_text.h"
#include "platform/container_runtime/compose/compose_output.h"
#include "platform/container_runtime/compose/project_name.h"

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;

/// What differs between the commands.
struct Words {
    const char* name;
    std::array<const char*, 2> arguments;
    const char* done;
    const char* nothingToDo;
};

/// In the order of ComposeCommand.
constexpr std::array<Words, 4> WORDS{{
    {"create", {"up", "--no-start"}, "Created", "its containers exist and are up to date"},
    {"start", {"start"}, "Started", "its containers are running"},
    {"stop", {"stop"}, "Stopped", "none of its containers is running"},
    {"remove", {"down"}, "Removed", "it has no containers"},
}};

/// Empty when `name` can be the name of a file, else what is wrong with it.
std::string refuseName(const std::string& name) {
    constexpr std::size_t maxBytes = 255;
    if (name.empty()) {
        return "The name of a compose file must not be empty";
    }
    if (name.size() > maxBytes) {
        return "The name of a compose file must not be longer than " + std::to_string(maxBytes) + " bytes";
    }
    if (name == "." || name == ".." || name.find('/') != std::string::npos) {
        return "'" + name + "' is not the name of a compose file";
    }
    return {};
}

}  // namespace

/// One call of an operation.
struct ComposeCommands::Job {
    const Words& words;
    ComposeCommand command;
    std::string fileName;
    std::string path;
    std::string project{};
    std::string tool{};
    std::shared_ptr<KxNNet::Cancellation> cancellation{};
    Clock::time_point deadline{};

    // The outcome.
    std::string message{};
    std::optional<int> exitCode{};
    std::string output{};

    std::string quotedName() const { return "'" + fileName + "'"; }
    std::string cannot(const std::string& reason) const {
        return std::string("Cannot ") + words.name + " the containers of " + quotedName() + ": " + reason;
    }
};

/// The right to run a command on a file, for a scope.
class ComposeCommands::Turn {
public:
    Turn(ComposeCommands& commands, Job& job) : owner(commands), fileName(job.fileName) {
        std::unique_lock lock(owner.mutex);
        job.cancellation = owner.cancellation;
        owner.runningCommands += 1;
        const auto isFree = [&] { return job.cancellation->isCancelled() || owner.busyFiles.count(fileName) == 0; };
        job.deadline = Clock::now() + owner.setup.timeLimit;  // of the wait and the command together
        const bool isInTime = owner.changed.wait_until(lock, job.deadline, isFree);
        isTaken = isInTime && !job.cancellation->isCancelled() && owner.busyFiles.insert(fileName).second;
    }
    ~Turn() {
        const std::lock_guard lock(owner.mutex);
        if (isTaken) {
            owner.busyFiles.erase(fileName);
        }
        owner.runningCommands -= 1;
        owner.changed.notify_all();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return isTaken; }

private:
    ComposeCommands& owner;
    const std::string fileName;
    bool isTaken = false;
};

ComposeCommands::ComposeCommands(ComposeSetup composeSetup)
    : setup(std::move(composeSetup)), cancellation(std::make_shared<KxNNet::Cancellation>()) {}

ComposeCommands::Code ComposeCommands::run(ComposeCommand command, const std::string& fileName, KxNJson::json& result) {
    const auto began = Clock::now();
    Job job{.words = WORDS.at(static_cast<std::size_t>(command)),
            .command = command,
            .fileName = fileName,
            .path = setup.directory + fileName};
    Code code = FAILED;
    try {
        code = runJob(job);
    } catch (const std::exception& exception) {
        job.message = std::string("The compose command failed: ") + exception.what();
    }
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
    KxCRTE_LOG(1, "Korvex Container Service: Compose %s of '%s' (project '%s') gave %d after %lld ms", job.words.name,
               fileName.c_str(), job.project.c_str(), code, static_cast<long long>(milliseconds));
    result = {{"Message", readableOutput(job.message)},
              {"Name", readableOutput(fileName)},
              {"Command", job.words.name},
              {"ExitCode", job.exitCode ? KxNJson::json(*job.exitCode) : KxNJson::json()},
              {"Output", std::move(job.output)}};
    return code;
}

ComposeCommands::Code ComposeCommands::runJob(Job& job) {
    job.message = refuseName(job.fileName);
    if (!job.message.empty()) {
        return BAD_FILE;
    }
    job.project = projectName(job.fileName);
    const Turn turn(*this, job);
    if (turn) {
        return runInTurn(job);
    }
    const bool isStopping = job.cancellation->isCancelled();
    job.message =
        job.cannot(isStopping ? "the container service is stopping" : "another command on this file still runs");
    return isStopping ? FAILED : TIMED_OUT;
}

ComposeCommands::Code ComposeCommands::runInTurn(Job& job) {
    struct stat status {};
    if (::stat(job.path.c_str(), &status) != 0) {
        const int number = errno;
        job.message = "Compose file '" + job.path + "' not found";
        if (number != ENOENT) {
            job.message = "Cannot read compose file '" + job.path + "': " + KxNCommon::systemText(number);
        }
        return number == ENOENT ? NO_SUCH_FILE : BAD_FILE;
    }
    if (!S_ISREG(status.st_mode)) {
        job.message = "'" + job.path + "' is not a compose file: it is no regular file";
        return BAD_FILE;
    }
    job.tool = KxNProcess::findExecutable(setup.tools);
    if (job.tool.empty()) {
        job.message = job.cannot("the compose tool '" + setup.tools.front() + "' is not installed");
        return TOOL_NOT_RUN;
    }
    const ComposeProject before = findComposeProject(setup.askPodman, job.project);
    if (!before.problem.empty()) {
        job.message = job.cannot(before.problem);
        return NO_PODMAN;
    }
    const KxNProcess::RunResult outcome = runTool(job, job.words.arguments);
    job.output = readableOutput(outcome.output);
    return interpret(job, outcome, before);
}

ComposeCommands::Code ComposeCommands::interpret(Job& job, const KxNProcess::RunResult& outcome,
                                                 const ComposeProject& before) {
    switch (outcome.end) {
        case KxNProcess::RunResult::End::NotStarted:
            job.message = job.cannot(outcome.error);
            return TOOL_NOT_RUN;
        case KxNProcess::RunResult::End::TimedOut:
            job.message = job.cannot("the compose tool did not end in time and was stopped. " + lastWords(job.output));
            return TIMED_OUT;
        case KxNProcess::RunResult::End::Cancelled:
            job.message = job.cannot("the container service is stopping");
            return FAILED;
        case KxNProcess::RunResult::End::Exited:
            break;
    }
    job.exitCode = outcome.exitCode;
    return outcome.exitCode == 0 ? judgeSuccess(job, before) : explainFailure(job, outcome);
}

ComposeCommands::Code ComposeCommands::explainFailure(Job& job, const KxNProcess::RunResult& outcome) {
    // Whether the file is at fault the tool says when it is asked only that.
    const KxNProcess::RunResult check = runTool(job, {"config", "--quiet"});
    if (check.end == KxNProcess::RunResult::End::Exited && check.exitCode != 0) {
        const std::string words = lastWords(readableOutput(check.output));
        job.message = job.quotedName() + " is not a compose file that can be used: " +
                      (words.empty() ? "the compose tool refuses it" : words);
        return BAD_FILE;
    }
    const std::string words = lastWords(job.output);
    job.message = job.cannot(words.empty() ? "the compose tool ended with status " + std::to_string(outcome.exitCode) +
                                                 " and said nothing"
                                           : words);
    return findComposeProject(setup.askPodman, job.project).problem.empty() ? FAILED : NO_PODMAN;
}

ComposeCommands::Code ComposeCommands::judgeSuccess(Job& job, const ComposeProject& before) {
    bool hadNothingToDo = false;
    bool hasCreated = false;
    switch (job.command) {
        case ComposeCommand::Create: {
            const ComposeProject after = findComposeProject(setup.askPodman, job.project);
            hasCreated = !after.problem.empty() || after.objects != before.objects;
            hadNothingToDo = !hasCreated;
            break;
        }
        case ComposeCommand::Start:
            hadNothingToDo = before.runningContainers == before.containers;
            break;
        case ComposeCommand::Stop:
            hadNothingToDo = before.runningContainers == 0;
            break;
        case ComposeCommand::Remove:
            hadNothingToDo = before.containers == 0 && before.networks == 0;
            break;
    }
    job.message = hadNothingToDo ? "Nothing to do for " + job.quotedName() + ": " + job.words.nothingToDo
                                 : std::string(job.words.done) + " the containers of " + job.quotedName();
    return hadNothingToDo ? NOTHING_TO_DO : hasCreated ? CREATED : DONE;
}

KxNProcess::RunResult ComposeCommands::runTool(const Job& job, const std::array<const char*, 2>& words) {
    KxNProcess::Program program{
        job.tool, {"--file", job.path, "--project-name", job.project}, setup.environment(), setup.directory};
    for (const char* word : words) {
        if (word != nullptr) {
            program.arguments.emplace_back(word);
        }
    }
    return KxNProcess::runToEnd(program, *job.cancellation, job.deadline);
}

void ComposeCommands::stop() {
    std::unique_lock lock(mutex);
    cancellation->cancel();
    changed.notify_all();
    changed.wait(lock, [this] { return runningCommands == 0; });
}

void ComposeCommands::resume() {
    const std::lock_guard lock(mutex);
    if (cancellation->isCancelled()) {
        cancellation = std::make_shared<KxNNet::Cancellation>();
    }
}

}  // namespace KxNContainer
