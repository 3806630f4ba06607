#include "platform/process/run_to_end.h"

#include "tests/support.h"

using namespace KxNProcess;
using namespace KxNTests;

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>

namespace {

using End = RunResult::End;

RunResult runShell(const std::string& script, std::chrono::milliseconds limit = 20s,
                   const KxNNet::Cancellation& cancellation = KxNNet::Cancellation()) {
    return runToEnd({"/bin/sh", {"-c", script}, {"PATH=/usr/bin:/bin"}, "/"}, cancellation, Clock::now() + limit);
}

/// Number of processes on this machine that run `sleep SECONDS`.
int countSleepers(const std::string& seconds) {
    int count = 0;
    for (const auto& process : std::filesystem::directory_iterator("/proc")) {
        count += readFile(process.path() / "cmdline") == "sleep\0"s + seconds + '\0' ? 1 : 0;
    }
    return count;
}

std::string uniqueSeconds() {
    static int number = 0;
    return std::to_string(::getpid() + 100000) + "." + std::to_string(++number);
}

TEST(Child, GetsItsArgumentsAndNothingElseOfUs) {
    const TemporaryDirectory directory;
    const int leaking = ::open("/dev/null", O_RDONLY);  // without close-on-exec, on purpose
    ::signal(SIGPIPE, SIG_IGN);
    const std::string odd = "a b'\"; $(touch x) `y`\n*";
    const RunResult result =
        runToEnd({"/bin/sh",
                  {"-c",
                   "echo \"[$1]\"; pwd; env | sort | tr '\\n' ' '; echo; ls /proc/self/fd | tr '\\n' ' '; echo; cat;"
                   "grep SigIgn /proc/self/status; grep SigBlk /proc/self/status; echo problem >&2",
                   "sh", odd},
                  {"A=1", "PATH=/usr/bin:/bin"},
                  directory.path("")},
                 KxNNet::Cancellation(), Clock::now() + 10s);
    ::close(leaking);
    // Signals 32 and 33 are the C library's own business.
    EXPECT_EQ(result.end, End::Exited);
    const std::string here = std::filesystem::path(directory.path("")).parent_path();
    EXPECT_EQ(result.output, "[" + odd + "]\n" + here + "\nA=1 PATH=/usr/bin:/bin PWD=" + here +
                                 " \n0 1 2 3 \nSigIgn:\t0000000180000000\nSigBlk:\t0000000000000000\nproblem\n");
}

TEST(Child, FloodOfOutputKeepsItsBeginningAndEndOnly) {
    const RunResult result = runShell("echo first; head -c 20000000 /dev/zero | tr '\\0' x; echo; echo last");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_LT(result.output.size(), 66000U);
    EXPECT_THAT(result.output, AllOf(StartsWith("first\nxxx"), EndsWith("xxx\nlast\n"), HasSubstr("bytes left out")));
}

TEST(Child, IsEndedWithAllThatItStarted) {
    const std::tuple<const char*, End, std::chrono::milliseconds> cases[] = {
        {"echo begun; setsid sleep $S & sleep $S; sleep $S", End::TimedOut, 2s},
        {"trap '' TERM; echo begun; setsid sleep $S & sleep $S; sleep $S", End::TimedOut, 2s},
        {"echo begun; setsid sleep $S &", End::Exited, 60s}};
    for (const auto& [script, end, timeout] : cases) {
        SCOPED_TRACE(script);
        const std::string seconds = uniqueSeconds();
        const auto began = Clock::now();
        const RunResult result = runShell("S=" + seconds + "; " + script, timeout);
        EXPECT_EQ(result.end, end);
        EXPECT_EQ(result.output, "begun\n");
        EXPECT_LT(Clock::now() - began, 30s);
        EXPECT_EQ(countSleepers(seconds), 0);
    }
}

TEST(Child, ThatCannotRunIsNotStarted) {
    const TemporaryDirectory directory;
    writeFile(directory.path("tool"), "#!/no/such/interpreter\n");
    std::filesystem::permissions(directory.path("tool"), std::filesystem::perms::owner_all);
    const std::tuple<std::string, std::string, const char*> cases[] = {
        {directory.path("none"), "/", "No such file or directory"},
        {directory.path("tool"), "/", "No such file or directory"},
        {directory.path(""), "/", "Permission denied"},
        {"/bin/true", directory.path("none"), "No such file or directory"}};
    for (const auto& [executable, workingDirectory, reason] : cases) {
        const RunResult result =
            runToEnd({executable, {}, {}, workingDirectory}, KxNNet::Cancellation(), Clock::now() + 10s);
        EXPECT_EQ(result.end, End::NotStarted);
        EXPECT_EQ(result.error, "cannot run '" + executable + "': " + reason);
    }
}

TEST(Executable, IsTheFirstThatIsThere) {
    EXPECT_EQ(findExecutable({"/no/such/sh", "no-such-sh", "sh", "/bin/true"}).substr(0, 5), "/usr/");
    EXPECT_EQ(findExecutable({"/etc/passwd", "/bin/true", "sh"}), "/bin/true");
    EXPECT_EQ(findExecutable({"no-such-sh"}), "");
}

TEST(Child, KilledServiceLeavesNoOrphans) {
    const std::string seconds = uniqueSeconds();
    const pid_t service = ::fork();
    if (service == 0) {
        runShell("setsid sleep " + seconds + " & sleep " + seconds);
        ::_exit(0);
    }
    EXPECT_TRUE(waitFor([&] { return countSleepers(seconds) == 2; }));
    ::kill(service, SIGKILL);
    ::waitpid(service, nullptr, 0);
    EXPECT_TRUE(waitFor([&] { return countSleepers(seconds) == 0; }));
}

}  // namespace
