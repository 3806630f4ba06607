#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <memory_resource>

#include "platform/common/unique_fd.h"
#include "platform/log/log_line.h"
#include "tests/support.h"

using namespace KxNCommon;
using namespace KxNTests;

namespace {

struct Pipe {
    Pipe() {
        std::array<int, 2> ends;
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        reader = UniqueFd(ends[0]);
        writer = UniqueFd(ends[1]);
    }
    UniqueFd reader;
    UniqueFd writer;
};

// Calls `onText` with what there is so far after each piece.
std::string readToEnd(
    const UniqueFd& from, const std::function<void(const std::string&)>& onText = [](const std::string&) {}) {
    std::string text;
    std::array<char, 65536> piece;
    for (ssize_t length; (length = ::read(from.get(), piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(length));
        onText(text);
    }
    return text;
}

// The test program, started with a given standard error (-1 for a closed one).
class LogProgram {
public:
    LogProgram(std::vector<std::string> arguments, int standardError, std::string variable = "NONE=") {
        arguments.insert(arguments.begin(), LOG_PROGRAM);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        pid = ::fork();
        if (pid == 0) {
            ::putenv(variable.data());
            ::dup2(input.reader.get(), STDIN_FILENO);
            ::dup2(output.writer.get(), STDOUT_FILENO);
            standardError >= 0 ? ::dup2(standardError, STDERR_FILENO) : ::close(STDERR_FILENO);
            ::execv(LOG_PROGRAM, argv.data());
            ::_exit(99);
        }
        input.reader.reset();
        output.writer.reset();
    }

    void endInput() { input.writer.reset(); }

    std::string readOutputLine() {
        std::string line;
        for (char c; ::read(output.reader.get(), &c, 1) == 1 && c != '\n';) {
            line += c;
        }
        return line;
    }

    int waitForExit() {
        int status = -1;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    Pipe input;
    Pipe output;
    pid_t pid = -1;
};

std::string logOf(std::vector<std::string> arguments, const std::string& variable = "NONE=") {
    Pipe error;
    LogProgram program(std::move(arguments), error.writer.get(), variable);
    error.writer.reset();
    const std::string log = readToEnd(error.reader);
    EXPECT_EQ(program.waitForExit(), 0);
    return log;
}

std::vector<std::string> messagesOf(const std::string& log) {
    constexpr const char* PREFIX = "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z [A-Z]+ ";
    std::vector<std::string> messages;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_THAT(line.substr(0, 60), testing::ContainsRegex(PREFIX));
        const std::size_t space = line.find(' ', line.find(' ') + 1);
        messages.push_back(line.substr(space + 1));
    }
    return messages;
}

TEST(LogLine, NothingInAValueStartsALineOrReachesATerminal) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain \\ text", "plain \\ text"},
        {"\n\r\t", "\\n\\r\\t"},
        {std::string("\0\x01\x1b[2J\x7f", 7), "\\x00\\x01\\x1b[2J\\x7f"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"\xC2\x9B", "\\xc2\\x9b"},                    // a control character beyond ASCII
        {"\xE2\x80\xA8", "\\xe2\\x80\\xa8"},           // line separator
        {"\x9B", "\\x9b"},                             // a continuation alone
        {"\xC3", "\\xc3"},                             // cut off
        {"\xE2\x82z", "\\xe2\\x82z"},                  // cut off, with text after it
        {"\xC0\x8A", "\\xc0\\x8a"},                    // overlong newline
        {"\xE0\x80\x8A", "\\xe0\\x80\\x8a"},           // the same, longer
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},           // surrogate
        {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond Unicode
    };
    for (const auto& [text, written] : rows) {
        std::pmr::string line = "> ";
        KxNLogLine::appendEscaped(line, text);
        EXPECT_EQ(std::string(line), "> " + written);
    }
}

TEST(LogLine, TimestampsAreUtcWithLeadingZeros) {
    std::pmr::string line;
    KxNLogLine::appendPrefix(line, KxNLogLine::Prefix::Timestamp, 4, {1'709'208'005, 7'900'000});
    EXPECT_EQ(std::string(line), "2024-02-29T12:00:05.007Z ERROR ");
}

TEST(Log, TheConfiguredLevelIsTheLowestThatIsWritten) {
    const TemporaryDirectory directory;
    const std::string file = directory.path("conf");
    const auto messages = [&](const char* configuration) {
        writeFile(file, configuration);
        return messagesOf(logOf({"levels"}, "KX_CUSTOM_CONFIG=" + file));
    };
    EXPECT_THAT(messages(""), ElementsAre("before main", "level 2", "level 3", "level 4", "level 6", "after main"));
    EXPECT_THAT(messages("[Log]\nLevel = 4\n"), ElementsAre("level 4", "level 6"));
    EXPECT_EQ(messages("[Log]\nLevel = 0\n").size(), 8u);
    const std::vector<std::string> defaulted = messages("[Log]\nLevel = 7\n");
    ASSERT_EQ(defaulted.size(), 7u) << "the default level and the configuration's own error";
    EXPECT_THAT(defaulted[0], HasSubstr(file + ":2: the key Level"));
}

TEST(Log, ALineIsOneLineWhateverIsInItAndHoweverLong) {
    EXPECT_THAT(messagesOf(logOf({"awkward"})),
                ElementsAre("before main", "value a\\nb\\x1b[31m\\r ends", "both end in a newline\\n",
                            "two in the format\\n", std::string(100'000, 'x') + "!", "after main"));
}

TEST(Log, TheJournalGetsPrioritiesAndNobodyElseDoes) {
    for (const ino_t offset : {0, 1}) {
        Pipe error;
        struct stat status {};
        ::fstat(error.writer.get(), &status);
        LogProgram program(
            {"levels"}, error.writer.get(),
            "JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino + offset));
        error.writer.reset();
        const std::string log = readToEnd(error.reader);
        EXPECT_EQ(program.waitForExit(), 0);
        if (offset == 0) {
            EXPECT_EQ(log, "<6>before main\n<6>level 2\n<4>level 3\n<3>level 4\n<5>level 6\n<6>after main\n");
        } else {
            EXPECT_EQ(messagesOf(log).size(), 6u);
        }
    }
}

TEST(Log, AReaderThatIsStuckNeitherHoldsTheProgramNorCostsAnError) {
    // How many lines, one in how many is an error, and how long they are.
    for (const auto& [lines, every, padding] : {std::array{20'000, 4, 80}, std::array{120, 1, 10'000}}) {
        SCOPED_TRACE(lines);
        Pipe error;
        LogProgram program({"many", std::to_string(lines), std::to_string(every), std::to_string(padding)},
                           error.writer.get());
        error.writer.reset();
        const long slowestMicroseconds = std::stol(program.readOutputLine());  // so far nothing was read
        EXPECT_LT(slowestMicroseconds, 2'000'000);
        // The program may exit then: what is still queued at its exit gets only a short while.
        const std::string lastError = "line " + std::to_string(lines - every) + " ";
        const std::string log = readToEnd(error.reader, [&](const std::string& text) {
            if (text.find(lastError, text.size() - std::min<std::size_t>(text.size(), 200'000)) != text.npos) {
                program.endInput();
            }
        });
        EXPECT_EQ(program.waitForExit(), 0);

        int nextError = 0;
        int lastLine = -1;
        long accountedFor = 0;
        bool isSomethingDropped = false;
        for (const std::string& message : messagesOf(log)) {
            if (const std::size_t at = message.find(" log lines were dropped"); at != std::string::npos) {
                accountedFor += std::stol(message.substr(message.find(": ") + 2));
                isSomethingDropped = true;
                continue;
            }
            ++accountedFor;
            if (message.starts_with("line ")) {
                const int number = std::stoi(message.substr(5));
                EXPECT_GT(number, lastLine) << "out of order";
                lastLine = number;
                if (number % every == 0) {
                    EXPECT_EQ(number, nextError) << "lost";
                    nextError += every;
                }
            }
        }
        EXPECT_EQ(nextError, lines);
        EXPECT_TRUE(isSomethingDropped || every == 1) << "the queue takes whatever comes";
        EXPECT_EQ(accountedFor, lines + 2) << "the lines outside main count as well";
    }
}

TEST(Log, AReaderThatNeverReadsOrGoesAwayIsNotTheEndOfTheProgram) {
    for (const bool goesAway : {false, true}) {
        Pipe error;
        LogProgram program({"many", "5000", "2", "80"}, error.writer.get());
        if (goesAway) {
            error = Pipe();
        }
        program.endInput();
        const auto started = Clock::now();
        EXPECT_EQ(program.waitForExit(), 0);
        EXPECT_LT(Clock::now() - started, 60s);  // a wait for each line would be four minutes
    }
}

TEST(Log, ThreadsThatLogWhileTheProcessExitsDoNoHarm) {
    const std::string log = logOf({"threads"});
    EXPECT_THAT(log, HasSubstr("still here\n"));
}

TEST(Log, WithStandardErrorClosedNoOtherFileIsWrittenInto) {
    const TemporaryDirectory directory;
    LogProgram program({"file", directory.path("other")}, -1);
    EXPECT_EQ(program.waitForExit(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("other")));
}

}  // namespace
