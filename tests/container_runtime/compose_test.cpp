#include <sys/stat.h>

#include <set>

#include "KxJson.h"
#include "platform/container_runtime/compose/compose_commands.h"
#include "platform/container_runtime/compose/compose_output.h"
#include "platform/container_runtime/compose/project_name.h"
#include "tests/support.h"

using namespace KxNContainer;
using namespace KxNTests;

constexpr auto CREATE = ComposeCommand::Create;
constexpr auto START = ComposeCommand::Start;
constexpr auto STOP = ComposeCommand::Stop;
constexpr auto REMOVE = ComposeCommand::Remove;

/// The tool is a shell that runs the compose file, whose arguments are the tool's from the project's name on. Podman
/// holds one container, whose state is the text of a file (none when there is no file).
class ComposeTest : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(directory.path("tool")) << "#!/bin/sh\nfile=$2; shift 3; . \"$file\"\n";
        std::filesystem::permissions(directory.path("tool"), std::filesystem::perms::owner_all);
    }

    PodmanReply answer(const std::string& path) const {
        std::string state = readFile(directory.path("state"));
        std::erase(state, '\n');
        if (state == "down") {
            return {"no Podman here", 503};
        }
        if (path.starts_with("/volumes?")) {
            return {R"({"Volumes": null})", 200};
        }
        if (path.starts_with("/networks?") || state.empty()) {
            return {"[]", 200};
        }
        return {R"([{"Id": "1", "State": ")" + state + R"("}])", 200};
    }

    ComposeCommands make(std::chrono::milliseconds timeLimit) {
        return ComposeCommands(
            {directory.path(""),
             {"/no/such/tool", directory.path("tool")},
             [this] {
                 return std::vector<std::string>{"PATH=/usr/bin:/bin", "STATE=" + directory.path("state")};
             },
             [this](const std::string& path) { return answer(path); },
             timeLimit});
    }

    void write(const std::string& name, const std::string& text) { writeFile(directory.path(name), text); }

    /// Runs the command on all these files at once; gives the code and the message of each.
    static std::vector<std::pair<int, std::string>> runTogether(
        ComposeCommands& on, ComposeCommand command, const std::vector<std::string>& files,
        const std::function<void()>& meanwhile = [] {}) {
        std::vector<std::pair<int, std::string>> outcomes(files.size());
        onThreads(
            static_cast<int>(files.size()),
            [&](int number) {
                KxNJson::json own;
                auto& [code, message] = outcomes[static_cast<std::size_t>(number)];
                code = on.run(command, files[static_cast<std::size_t>(number)], own);
                message = own["Message"];
            },
            meanwhile);
        return outcomes;
    }

    const TemporaryDirectory directory;
    ComposeCommands commands = make(20s);
    KxNJson::json result;
};

TEST_F(ComposeTest, CodesAndMessagesOfEveryOutcome) {
    const std::string fails = R"([ "$2" = config ] && exit 0; echo "ERROR: no such image"; exit 1)";
    const std::tuple<ComposeCommand, std::string, const char*, int, KxNJson::json, const char*> cases[] = {
        {CREATE, "echo created > $STATE", "", 1, 0, "Created the containers of 'a.yml'"},
        {CREATE, "exit 0", "created", 7, 0, "Nothing to do for 'a.yml': its containers exist and are up to date"},
        {START, "exit 0", "created", 0, 0, "Started the containers of 'a.yml'"},
        {START, "exit 0", "running", 7, 0, "Nothing to do for 'a.yml': its containers are running"},
        {STOP, "exit 0", "running", 0, 0, "Stopped the containers of 'a.yml'"},
        {STOP, "exit 0", "exited", 7, 0, "Nothing to do for 'a.yml': none of its containers is running"},
        {REMOVE, "exit 0", "exited", 0, 0, "Removed the containers of 'a.yml'"},
        {REMOVE, "exit 0", "", 7, 0, "Nothing to do for 'a.yml': it has no containers"},
        {CREATE, fails, "", 5, 1, "Cannot create the containers of 'a.yml': no such image"},
        {STOP, R"([ "$2" = config ] || exit 3)", "running", 5, 3,
         "Cannot stop the containers of 'a.yml': the compose tool ended with status 3 and said nothing"},
        {START, R"([ "$2" = config ] || kill -9 $$)", "", 5, 137, "status 137"},
        {CREATE, "echo line 1 is bad; exit 1", "", 3, 1,
         "'a.yml' is not a compose file that can be used: line 1 is bad"},
        {CREATE, "exit 0", "down", 8, nullptr, "Cannot create the containers of 'a.yml': no Podman here"},
        {START, R"([ "$2" = config ] && exit 0; echo down > $STATE; echo lost it; exit 1)", "created", 8, 1, "lost it"},
    };
    for (const auto& [command, script, state, code, exitCode, message] : cases) {
        write("a.yml", script);
        write("state", state);
        EXPECT_EQ(commands.run(command, "a.yml", result), code) << message;
        EXPECT_THAT(result["Message"].get<std::string>(), HasSubstr(message));
        EXPECT_EQ(result["ExitCode"], exitCode) << message;
    }
}

TEST_F(ComposeTest, ResultHoldsItsKeysInOrderAndReadableText) {
    write("a.yml", R"(echo "$1|$2|$3"; printf 'caf\303\251 \377 \033[31mred\033[0m\r\n'; echo created > $STATE)");
    EXPECT_EQ(commands.run(CREATE, "a.yml", result), 1);
    EXPECT_EQ(result.dump(),
              R"({"Message":"Created the containers of 'a.yml'","Name":"a.yml","Command":"create","ExitCode":0,)"
              R"("Output":"kx-a_2eyml|up|--no-start\ncafé )"
              "\xef\xbf\xbd red\\n\"}");
}

TEST_F(ComposeTest, FilesThatAreNone) {
    std::filesystem::create_directory(directory.path("directory.yml"));
    std::filesystem::create_symlink("nowhere", directory.path("dangling.yml"));
    ASSERT_EQ(::mkfifo(directory.path("pipe.yml").c_str(), 0600), 0);
    const std::string none[] = {"none.yml", "a\nb", "dangling.yml", std::string(255, 'n')};
    for (const std::string& name : none) {
        EXPECT_EQ(commands.run(REMOVE, name, result), 4) << name;
    }
    const std::string unusable[] = {
        "", ".", "..", "a/b.yml", "/etc/passwd", "directory.yml", "pipe.yml", std::string(256, 'n')};
    for (const std::string& name : unusable) {
        EXPECT_EQ(commands.run(REMOVE, name, result), 3) << name;
        EXPECT_FALSE(result["Message"].get<std::string>().empty());
        EXPECT_EQ(result["Name"], name);
        EXPECT_TRUE(result["ExitCode"].is_null());
    }
    EXPECT_EQ(result["Message"], "The name of a compose file must not be longer than 255 bytes");
}

TEST_F(ComposeTest, HangTimesOutAlsoForThoseThatWait) {
    ComposeCommands impatient = make(2s);
    write("a.yml", "echo working on it; sleep 100");
    const auto outcomes = runTogether(impatient, CREATE, {"a.yml", "a.yml", "a.yml"});
    EXPECT_THAT(outcomes, Each(Pair(6, testing::_)));
    EXPECT_THAT(outcomes, Contains(Pair(6, HasSubstr("did not end in time and was stopped. working on it"))));
    EXPECT_THAT(outcomes, Contains(Pair(6, HasSubstr("another command on this file still runs"))));
}

TEST_F(ComposeTest, OneFileRunsInTurnDifferentFilesSideBySide) {
    // Each of the two waits for the other to have begun.
    const std::string together =
        "mkdir ${file%/*}/met.$n; while [ ! -d ${file%/*}/met.1 ] || [ ! -d ${file%/*}/met.2 ]; do sleep 0.01; done";
    write("a.yml", "mkdir \"$file.busy\" || exit 9; sleep 0.05; rmdir \"$file.busy\"");
    write("b.yml", "n=1; " + together);
    write("c.yml", "n=2; " + together);
    write("state", "running");
    EXPECT_THAT(runTogether(commands, STOP, {"a.yml", "a.yml", "a.yml", "a.yml", "b.yml", "c.yml"}),
                Each(Pair(0, testing::_)));
}

TEST_F(ComposeTest, StopEndsRunningAndWaitingCommandsUntilResumed) {
    write("a.yml", "touch \"$file.begun\"; exec sleep 100");
    const auto stop = [this] {
        EXPECT_TRUE(waitFor([this] { return std::filesystem::exists(directory.path("a.yml.begun")); }));
        commands.stop();
    };
    EXPECT_THAT(runTogether(commands, CREATE, {"a.yml", "a.yml", "a.yml"}, stop),
                Each(Pair(5, HasSubstr("is stopping"))));
    write("a.yml", "exit 0");
    EXPECT_EQ(commands.run(REMOVE, "a.yml", result), 5);
    commands.resume();
    EXPECT_EQ(commands.run(REMOVE, "a.yml", result), 7);
}

TEST(ProjectName, DifferentFilesNeverMeetAndEveryNameIsUsable) {
    std::set<std::string> fileNames = {"web.yml",  "web.yaml", "Web.yml",  "web_yml", "web_2eyml",     "-web.yml",
                                       "_web.yml", "1web.yml", "w eb.yml", "web",     "w\xc3\xa9.yml", "kx-web.yml"};
    for (int byte = 1; byte < 256; ++byte) {
        fileNames.insert(std::string(1, static_cast<char>(byte)));
        fileNames.insert(std::string(254, 'n') + static_cast<char>(byte));
        fileNames.insert(std::string(40, '_') + static_cast<char>(byte));
        fileNames.insert(std::string(90, 'a') + std::string(static_cast<std::size_t>(byte) % 166, 'a'));
    }
    std::set<std::string> projects;
    for (const std::string& fileName : fileNames) {
        const std::string project = projectName(fileName);
        EXPECT_TRUE(projects.insert(project).second) << fileName << " shares " << project;
        EXPECT_LE(project.size(), 100U);
        EXPECT_EQ(project.substr(0, 3), "kx-");
        EXPECT_EQ(project.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_-"), std::string::npos) << project;
    }
    EXPECT_EQ(projectName("web-1.yml"), "kx-web-1_2eyml");
}

TEST(ComposeOutput, LastWordsNameTheCause) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"Creating network \"n_default\" with the default driver\nPulling a (localhost/nope:1)...\nCreating n_a_1 ... "
         "\n"
         "Creating n_a_1 ... error\n\nERROR: for n_a_1  Cannot create\n\n"
         "ERROR: for a  Cannot create container for service a: no such image: localhost/nope:1: image not known\n"
         "Encountered errors while bringing up the project.\n",
         "for a  Cannot create container for service a: no such image: localhost/nope:1: image not known"},
        {"Starting a ... \nStarting b ... \nStarting a ... failed\nStarting b ... failed\nNo containers to start\n1\n",
         "No containers to start"},
        {"yaml.parser.ParserError: while parsing a flow sequence\n  in \"x.yml\", line 1, column 4\nexpected ',' or "
         "']'\n",
         "yaml.parser.ParserError: while parsing a flow sequence in \"x.yml\", line 1, column 4 expected ',' or ']'"},
        {"ERROR: The Compose file './x.yml' is invalid because:\nUnsupported config option for services.a: 'b'\n",
         "The Compose file './x.yml' is invalid because: Unsupported config option for services.a: 'b'"},
        {"Traceback (most recent call last):\n  File \"a.py\", line 1, in f\n    g()\nsome.Error: first\n\n"
         "During handling of the above exception, another exception occurred:\n\n"
         "Traceback (most recent call last):\n  File \"b.py\", line 2, in g\n    h()\n    ^^^\nsome.Error: last\n",
         "some.Error: last"},
        {"1\n2\n3\n4\n5\n6\n7", "3 4 5 6 7"},
    };
    for (const auto& [output, words] : cases) {
        EXPECT_EQ(lastWords(output), words);
    }
    EXPECT_LE(lastWords(std::string(100000, 'x')).size(), 1003U);
}

TEST(ComposeOutput, IsMadeReadableWhereverItIsCut) {
    EXPECT_EQ(readableOutput("\x1b[1;31mred\x1b[0m \x1b(Bx\r\ny\rz\a\b\x7f\ttab"), "red Bx\ny\nz\ttab");
    for (const char* cut : {"\x1b", "\x1b[", "\x1b[1;3"}) {
        EXPECT_EQ(readableOutput(std::string("a") + cut), "a");
    }
    EXPECT_EQ(readableOutput("\xc3"), "\xef\xbf\xbd");
}
