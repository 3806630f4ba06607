// The log is looked at from outside: this program is started again with a standard error of the test's and, as
// arguments, what it is to log.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <memory_resource>

#include "KxLog.h"
#include "platform/common/unique_fd.h"
#include "platform/log/log_line.h"
#include "tests/support.h"

using namespace KxNCommon;
using namespace KxNTests;

namespace {

const bool isStartedByTest = std::getenv("KX_LOG_TEST") != nullptr;

struct LogsOutsideMain {
    LogsOutsideMain() { log("before main"); }
    ~LogsOutsideMain() { log("after main"); }
    static void log(const char* text) {
        if (isStartedByTest) {
            KxCRTE_LOG(2, "%s", text);
        }
    }
} logsOutsideMain;

/// Prints the slowest line's microseconds. Logs as many more for each byte of its input, until that ends.
void logMany(int lines, int everyHowManyIsKept, const std::string& padding) {
    int number = 0;
    do {
        long slowest = 0;
        for (int end = number + lines; number < end; ++number) {
            const auto started = Clock::now();
            KxCRTE_LOG(number % everyHowManyIsKept == 0 ? 3 : 2, "line %d %s", number, padding.c_str());
            slowest = std::max(slowest, static_cast<long>((Clock::now() - started) / 1us));
        }
        std::printf("%ld\n", slowest);
        std::fflush(stdout);
    } while (std::getchar() != EOF);
}

void logFromThreadsDuringExit() {
    static std::atomic<bool> hasBegun{false};
    for (int i = 0; i < 3; ++i) {
        std::thread([] {
            for (;; hasBegun = true) {
                KxCRTE_LOG(2, "still here");
            }
        }).detach();
    }
    waitFor([] { return hasBegun.load(); });
    std::this_thread::sleep_for(50ms);
}

void logAs(const std::vector<std::string>& arguments) {
    if (arguments[0] == "levels") {
        for (const int level : {0, 1, 2, 3, 4, 6}) {
            KxCRTE_LOG(level, "level %d\n", level);
        }
    } else if (arguments[0] == "awkward") {
        KxCRTE_LOG(2, "value %s ends", "a\nb\x1b[31m\r");
        KxCRTE_LOG(2, "both end %s\n", "in a newline\n");
        KxCRTE_LOG(2, "two in the format\n\n");
        for (const std::size_t size : {1022, 1023, 100'000}) {
            KxCRTE_LOG(2, "%s!", std::string(size, 'x').c_str());
        }
        errno = 77;
        KxCRTE_LOG(2, "%s%d", "", errno);
        KxCRTE_LOG(2, "errno %d", errno);
    } else if (arguments[0] == "many") {
        logMany(std::stoi(arguments[1]), std::stoi(arguments[2]), std::string(std::stoul(arguments[3]), '.'));
    } else if (arguments[0] == "threads") {
        logFromThreadsDuringExit();
    } else {  // a file, which the log must not be written into
        const UniqueFd file(::open(arguments[0].c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        KxCRTE_LOG(4, "a line");
    }
}

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

/// Calls `onText` with what there is so far after each piece.
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

/// This program started again, with a given standard error (-1 for a closed one).
struct LogProgram {
    LogProgram(std::vector<std::string> arguments, int standardError, std::string variable = "NONE=") {
        arguments.insert(arguments.begin(), "log");
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        pid = ::fork();
        if (pid == 0) {
            ::putenv(variable.data());
            ::setenv("KX_LOG_TEST", "1", 1);
            ::dup2(input.reader.get(), STDIN_FILENO);
            ::dup2(output.writer.get(), STDOUT_FILENO);
            standardError >= 0 ? ::dup2(standardError, STDERR_FILENO) : ::close(STDERR_FILENO);
            ::execv("/proc/self/exe", argv.data());
            ::_exit(99);
        }
        input.reader.reset();
        output.writer.reset();
    }

    int waitForExit() {
        input.writer.reset();
        int status = -1;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    Pipe input;
    Pipe output;
    pid_t pid = -1;
};

std::string logOf(std::vector<std::string> arguments, const std::string& variable = "NONE=", Pipe error = {}) {
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
        messages.push_back(line.substr(line.find(' ', line.find(' ') + 1) + 1));
    }
    return messages;
}

TEST(LogLine, NothingInAValueStartsALineOrReachesATerminal) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain \\ text ~", "plain \\ text ~"},
        {"\n\r\t", "\\n\\r\\t"},
        {std::string("\0\x01\x1b[2J\x7f", 7), "\\x00\\x01\\x1b[2J\\x7f"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"\xC2\xA0\xDF\xBF\xED\x9F\xBF\xEE\x80\x80", "\xC2\xA0\xDF\xBF\xED\x9F\xBF\xEE\x80\x80"},
        {"\xEF\xBF\xBF\xF4\x8F\xBF\xBF", "\xEF\xBF\xBF\xF4\x8F\xBF\xBF"},
        // a control character beyond ASCII, line and paragraph separators
        {"\xC2\x9F \xE2\x80\xA8 \xE2\x80\xA9", "\\xc2\\x9f \\xe2\\x80\\xa8 \\xe2\\x80\\xa9"},
        // a continuation alone, cut off with text after it, cut off
        {"\x9B \xE2\x82z \xC3", "\\x9b \\xe2\\x82z \\xc3"},
        // overlong
        {"\xC0\x8A \xE0\x9F\xBF \xF0\x8F\xBF\xBF", "\\xc0\\x8a \\xe0\\x9f\\xbf \\xf0\\x8f\\xbf\\xbf"},
        // the first surrogate and the last
        {"\xED\xA0\x80 \xED\xBF\xBF", "\\xed\\xa0\\x80 \\xed\\xbf\\xbf"},
        // beyond Unicode
        {"\xF4\x90\x80\x80 \xF5\x80\x80\x80", "\\xf4\\x90\\x80\\x80 \\xf5\\x80\\x80\\x80"}};
    for (const auto& [text, written] : rows) {
        std::pmr::string line = "> ";
        KxNLogLine::appendEscaped(line, text);
        EXPECT_EQ(std::string(line), "> " + written);
    }
}

TEST(LogLine, PrefixesHoldUtcOrThePriorityOfEachLevel) {
    const char* const prefixes[] = {"<7>DEBUG", "<7>DEBUG", "<7>DEBUG",  "<6>INFO",  "<4>WARNING",
                                    "<3>ERROR", "<3>ERROR", "<5>NOTICE", "<5>NOTICE"};
    int level = -1;
    for (const std::string prefix : prefixes) {
        std::pmr::string lines;
        KxNLogLine::appendPrefix(lines, KxNLogLine::Prefix::Journal, level, {});
        KxNLogLine::appendPrefix(lines, KxNLogLine::Prefix::Timestamp, level++, {1'709'208'005, 7'900'000});
        EXPECT_EQ(std::string(lines), prefix.substr(0, 3) + "2024-02-29T12:00:05.007Z " + prefix.substr(3) + " ");
    }
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
    EXPECT_THAT(messages("[Log]\nLevel = 6\n"), ElementsAre("level 6"));
    EXPECT_EQ(messages("[Log]\nLevel = 0\n").size(), 8u);
    const std::vector<std::string> defaulted = messages("[Log]\nLevel = 7\n");
    ASSERT_EQ(defaulted.size(), 7u) << "the default level and the configuration's own error";
    EXPECT_THAT(defaulted[0], HasSubstr(file + ":2: the key Level"));
}

TEST(Log, ALineIsOneLineWhateverIsInItAndHoweverLong) {
    EXPECT_THAT(messagesOf(logOf({"awkward"})),
                ElementsAre("before main", "value a\\nb\\x1b[31m\\r ends", "both end in a newline\\n",
                            "two in the format\\n", std::string(1022, 'x') + "!", std::string(1023, 'x') + "!",
                            std::string(100'000, 'x') + "!", "77", "errno 77", "after main"));
}

TEST(Log, TheJournalGetsPrioritiesAndNobodyElseDoes) {
    for (const ino_t offset : {0, 1}) {
        Pipe error;
        struct stat status {};
        ::fstat(error.writer.get(), &status);
        const std::string log =
            logOf({"levels"},
                  "JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino + offset),
                  std::move(error));
        EXPECT_EQ(log == "<6>before main\n<6>level 2\n<4>level 3\n<3>level 4\n<5>level 6\n<6>after main\n",
                  offset == 0);
        EXPECT_TRUE(offset == 0 || messagesOf(log).size() == 6u) << log;
    }
}

TEST(Log, AReaderThatIsStuckNeitherHoldsTheProgramNorCostsAWarning) {
    // How many lines, one in how many is a warning, and how long they are.
    for (const auto& [lines, every, padding] : {std::array{20'000, 4, 80}, std::array{120, 1, 10'000}}) {
        SCOPED_TRACE(lines);
        Pipe error;
        LogProgram program({"many", std::to_string(lines), std::to_string(every), std::to_string(padding)},
                           error.writer.get());
        error.writer.reset();
        const auto waitUntilAllAreLogged = [&] {  // while nothing is read
            std::array<char, 32> slowestMicroseconds{};
            EXPECT_GT(::read(program.output.reader.get(), slowestMicroseconds.data(), slowestMicroseconds.size() - 1),
                      0);
            EXPECT_LT(std::atol(slowestMicroseconds.data()), 2'000'000);
        };
        waitUntilAllAreLogged();
        int rounds = 1;
        const std::string log = readToEnd(error.reader, [&](const std::string& text) {
            const std::string lastKept = "line " + std::to_string(rounds * lines - every) + " ";
            if (text.find(lastKept, text.size() - std::min<std::size_t>(text.size(), 200'000)) == text.npos) {
                return;
            }
            if (rounds == 2) {  // the program may exit: what is still queued then gets only a short while
                program.input.writer.reset();
            } else if (++rounds; ::write(program.input.writer.get(), "", 1) == 1) {
                waitUntilAllAreLogged();
            }
        });
        EXPECT_EQ(program.waitForExit(), 0);
        ASSERT_EQ(rounds, 2);

        std::vector<int> numbers;
        long taken = 0;
        long dropped = 0;
        for (const std::string& message : messagesOf(log)) {
            if (message.find(" log lines were dropped") != std::string::npos) {
                dropped += std::stol(message.substr(message.find(": ") + 2));
                continue;
            }
            ++taken;
            if (message.starts_with("line ")) {
                numbers.push_back(std::stoi(message.substr(5)));
                EXPECT_EQ(message, "line " + std::to_string(numbers.back()) + " " +
                                       std::string(static_cast<std::size_t>(padding), '.'));
            }
        }
        EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()), numbers.end());
        const auto isKept = [every = every](int number) { return number % every == 0; };
        EXPECT_EQ(std::count_if(numbers.begin(), numbers.end(), isKept), rounds * lines / every) << "lost";
        EXPECT_TRUE(dropped > 0 || every == 1) << "the queue takes whatever comes";
        EXPECT_TRUE(taken - rounds * lines / every > 1000 || every == 1) << "the queue takes nothing";
        EXPECT_EQ(taken + dropped, rounds * lines + 2) << "the lines outside main count as well";
    }
}

TEST(Log, AReaderThatNeverReadsOrGoesAwayIsNotTheEndOfTheProgram) {
    for (const bool goesAway : {false, true}) {
        Pipe error;
        LogProgram program({"many", "5000", "2", "80"}, error.writer.get());
        if (goesAway) {
            error = Pipe();
        }
        const auto started = Clock::now();
        EXPECT_EQ(program.waitForExit(), 0);
        EXPECT_LT(Clock::now() - started, 60s);  // a wait for each line would be four minutes
    }
}

TEST(Log, ThreadsThatLogWhileTheProcessExitsDoNoHarm) {
    EXPECT_THAT(logOf({"threads"}), HasSubstr("still here\n"));
}

TEST(Log, WithStandardErrorClosedNoOtherFileIsWrittenInto) {
    const TemporaryDirectory directory;
    LogProgram program({directory.path("other")}, -1);
    EXPECT_EQ(program.waitForExit(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("other")));
}

}  // namespace

int main(int argc, char** argv) {
    if (isStartedByTest) {
        logAs({argv + 1, argv + argc});
        return 0;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
