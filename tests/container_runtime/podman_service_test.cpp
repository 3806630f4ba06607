#include "platform/container_runtime/podman/podman_service.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

#include <csignal>

#include "log_recorder.h"
#include "podman_double.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;

namespace {

/// What it throws, in words.
std::string failure(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

class PodmanServiceTest : public testing::Test {
protected:
    KxNProcess::Program fakePodman(std::vector<std::string> options = {}) {
        options.insert(options.end(), {"system", "service", "--time=0", client.getAddress().text()});
        return {KX_FAKE_PODMAN, options, {"KX_FAKE_PODMAN=given"}};
    }

    /// The process that answers, 0 for none.
    pid_t server() { return client.ping(running).server; }

    std::vector<std::pair<int, std::string>> logLines() {
        const auto fresh = KxNTests::takeLogLines();
        lines.insert(lines.end(), fresh.begin(), fresh.end());
        return lines;
    }

    void SetUp() override { KxNTests::takeLogLines(); }

    KxNTests::TemporaryDirectory directory;
    PodmanClient client{{directory.path("podman.sock"), 0}};
    KxNNet::Cancellation running;
    PodmanService service{client, directory.path("output")};
    std::vector<std::pair<int, std::string>> lines;
};

}  // namespace

TEST_F(PodmanServiceTest, StartsPodmanWithNothingOfThisProcessAndEndsIt) {
    const KxNCommon::UniqueFd leak(::open("/dev/null", O_RDONLY));
    service.start(fakePodman(), 0);
    EXPECT_TRUE(client.ping(running).isAnswered);
    const pid_t pid = server();
    EXPECT_TRUE(waitFor([&] { return logLines().size() >= 2; }));
    EXPECT_THAT(logLines(), Contains(Pair(1, HasSubstr("Podman: descriptors 0 1 2 ; term 0; environment given"))));
    service.stop();
    EXPECT_NE(::kill(pid, 0), 0);
    EXPECT_FALSE(client.ping(running).isAnswered);
    service.stop();
}

TEST_F(PodmanServiceTest, SaysWhyPodmanDoesNotStart) {
    EXPECT_EQ(failure([&] { service.start(fakePodman({"--refuse"}), 0); }),
              "Podman ended with status 125 while it was started: Error: no storage");
    EXPECT_EQ(failure([&] {
                  service.start({directory.path("podman"), {}, {}}, 0);
              }),
              "Cannot run '" + directory.path("podman") + "': No such file or directory");
}

TEST_F(PodmanServiceTest, UsesAPodmanThatRunsLeavesItRunningAndReplacesItWhenItDies) {
    KxNContainer::PodmanLog log(directory.path("other"));
    log.open();
    const auto output = log.openForPodman();
    auto other = KxNProcess::ServiceProcess::start(fakePodman(), 0, output.get());
    ASSERT_TRUE(waitFor([&] { return client.ping(running).isAnswered; }));
    const pid_t pid = server();

    service.start(fakePodman(), 0);
    EXPECT_EQ(server(), pid);
    service.stop();
    EXPECT_TRUE(client.ping(running).isAnswered);

    service.start(fakePodman(), 0);
    other.end(1s, [] {});
    EXPECT_TRUE(waitFor([&] {
        const pid_t now = server();
        return now != 0 && now != pid;
    }));
}

TEST_F(PodmanServiceTest, GivesPodmanSoManyCpusAndAllForANumberThatIsNone) {
    cpu_set_t mine;
    ASSERT_EQ(::sched_getaffinity(0, sizeof mine, &mine), 0);
    for (const std::int32_t cpus : {0, -1, 1000, 1}) {
        service.start(fakePodman(), cpus);
        cpu_set_t podmans;
        ASSERT_EQ(::sched_getaffinity(server(), sizeof podmans, &podmans), 0);
        EXPECT_EQ(CPU_COUNT(&podmans), cpus == 1 ? 1 : CPU_COUNT(&mine));
        service.stop();
    }
}

TEST_F(PodmanServiceTest, GrowsThePauseBetweenStartsOfAPodmanThatKeepsDying) {
    const auto started = Clock::now();
    service.start(fakePodman({"--die-after", "1"}), 0);
    const auto deaths = [&] {
        std::ptrdiff_t count = 0;
        for (const auto& [level, line] : logLines()) {
            count += level == 3 && line.find("ended with status 7") != std::string::npos;
        }
        return count;
    };
    EXPECT_TRUE(waitFor([&] { return deaths() >= 4; }));
    EXPECT_GE(Clock::now() - started, 100ms + 200ms + 400ms);
    EXPECT_THAT(logLines(), Contains(Pair(3, HasSubstr("level=fatal"))));
    const auto begin = Clock::now();
    service.stop();
    EXPECT_LT(Clock::now() - begin, 10s);
}

TEST_F(PodmanServiceTest, LetsAPodmanWriteOnWhenItsReaderIsKilled) {
    const std::string path = directory.path("fifo");
    auto log = std::make_unique<PodmanLog>(path);
    log->open();
    const auto podmans = log->openForPodman();
    log.reset();
    const std::string line = "level=warning msg=\"IdleTracker 1\"\nlevel=error msg=\"written while nobody read\"\n" +
                             std::string(3000, 'x') + "\nrest";
    ASSERT_EQ(::write(podmans.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
    PodmanLog next(path);
    next.open();
    next.drain();
    EXPECT_THAT(logLines(),
                ElementsAre(Pair(1, HasSubstr("IdleTracker")), Pair(3, HasSubstr("written while nobody read")),
                            Pair(1, EndsWith(": " + std::string(1024, 'x')))));

    std::ofstream(directory.path("file")) << "not a FIFO";
    EXPECT_THAT(failure([&] { PodmanLog(directory.path("file")).open(); }), HasSubstr("file': not a FIFO"));
}
