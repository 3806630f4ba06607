#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "api/operations.h"
#include "api/profiling.h"
#include "service/KxCServiceController.h"
#include "service/run_service.h"
#include "tests/operations/Harness.h"

using namespace KxNTests;

constexpr const char* MARKER = "/run/KxContainerRTE.enabled";

const std::string BEGUN =
    "getMasterErrorList\nmessages init\nclock init\ngetOption ContainerRuntime Profiling 0\nserver create 16\n";
const std::string STARTED =
    BEGUN + "server init\nserver registerHandler\nserver start 5\n2: TAMBER WebApi server started\n";
const std::string INSTALLED = "isSingletonProcess 0\ninstallSignalHandler 15\ninstallSignalHandler 2\nenabled?\n";
const std::string WAITED =
    "setServiceInitialized\n2: Shutdown requested (signal 15).\n2: Shutdown requested (eventfd).\n\n";
const std::string SERVER_GONE = "server stop\nserver destroyed\n";
const std::string MESSAGES_GONE = "sendErrorList 0\nflushMessageBuffer 100\ncloseClient\n";
const std::string WENT_WRONG = "4: Something went wrong!\n";
const std::string ENDED = "removeSignalHandler 15\nremoveSignalHandler 2\nhandler detached\nhandler destroyed\n";

class Process : public testing::Test {
protected:
    Process() { renew(); }

    /// A new world, in which the service is asked to end as soon as it has started.
    void renew() {
        KxNDoubles::reset();
        KxCErrorManager::getSingleton();
        world().journal.clear();
        world().onInitialized = [this] {
            markerWhileServing = readFile(MARKER);
            isMarkerForAll = (std::filesystem::status(MARKER).permissions() & std::filesystem::perms::others_read) !=
                             std::filesystem::perms::none;
            KxCServiceController::onSignal(*world().masterErrors, 15);
        };
    }

    std::string markerWhileServing;
    bool isMarkerForAll = false;
};

TEST_F(Process, MarkerIsForAllToSeeWhateverTheUmask) {
    std::filesystem::remove(MARKER);
    const mode_t before = ::umask(0077);
    EXPECT_EQ(runService(), 0);
    ::umask(before);
    EXPECT_TRUE(isMarkerForAll);
}

TEST_F(Process, StartsAndEndsInOrderWhateverFails) {
    const std::string runs = "init\nStart\n" + WAITED + "Stop\n";
    const std::string end = MESSAGES_GONE + ENDED;
    const std::string badEnd = MESSAGES_GONE + WENT_WRONG + ENDED;
    const auto failed = [](const std::string& call) { return "error added: server " + call + " failed\n"; };
    // marker: while it serves
    const std::tuple<std::string, int, std::string, std::string> rows[] = {
        {"nothing", 0, "1\n", STARTED + INSTALLED + runs + SERVER_GONE + end},
        {"to be enabled", 0, "",
         STARTED + INSTALLED + "2: Container service is disabled by configuration.\n" + WAITED + "Stop\n" +
             SERVER_GONE + end},
        {"init", 1, "1\n",
         STARTED + INSTALLED + "init\n4: Failed to initialize the service\n" + WAITED + SERVER_GONE + badEnd},
        {"Start", 1, "1\n",
         STARTED + INSTALLED + "init\nStart\n4: Failed to start the service\nStop\n" + WAITED + SERVER_GONE + badEnd},
        {"isSingletonProcess", 1, "",
         STARTED + "isSingletonProcess 0\n2: Another instance of the container service is already running\n"
                   "handler detached\nhandler destroyed\n"},
        // Without its web API the service runs.
        {"server create", 1, "1\n", BEGUN + failed("create") + INSTALLED + runs + badEnd},
        {"server init", 1, "1\n", BEGUN + "server init\n" + failed("init") + INSTALLED + runs + SERVER_GONE + badEnd},
        {"server registerHandler", 1, "1\n",
         BEGUN + "server init\nserver registerHandler\n" + failed("registerHandler") + INSTALLED + runs + SERVER_GONE +
             badEnd},
        {"server start", 1, "1\n",
         BEGUN + "server init\nserver registerHandler\nserver start 5\n" + failed("start") + INSTALLED + runs +
             SERVER_GONE + badEnd},
        {"server stop", 0, "1\n",
         STARTED + INSTALLED + runs + "server stop\n" + failed("stop") + "server destroyed\n" + end},
    };
    for (const auto& [failing, status, marker, journal] : rows) {
        SCOPED_TRACE(failing);
        renew();
        writeFile(MARKER, "a longer text from before");
        markerWhileServing.clear();
        world().failing = {failing};
        world().isEnabled = failing != "to be enabled";
        EXPECT_EQ(runService(), status);
        EXPECT_EQ(world().journal, journal);
        EXPECT_EQ(markerWhileServing, marker);
        EXPECT_EQ(std::filesystem::exists(MARKER), failing == "isSingletonProcess");
    }
}

TEST_F(Process, MakesTheErrorManagerThatIsNotThereYetAndIgnoresAMarkerThatCannotBeWritten) {
    KxCErrorManager::instance = nullptr;
    std::filesystem::remove(MARKER);
    std::filesystem::create_directory(MARKER);
    EXPECT_EQ(runService(), 0);
    EXPECT_THAT(world().journal, StartsWith("KxCErrorManager::getSingleton\ngetMasterErrorList\n"));
    EXPECT_THAT(world().journal, HasSubstr("enabled?\ninit\nStart\n"));
}

TEST_F(Process, ProfilingIsOnForExactlyOne) {
    for (const std::string option : {"0", "", "11", "1 ", "yes", "true", "10", "1"}) {
        renew();
        world().options["Profiling"] = option;
        world().onInitialized = [&option] {
            EXPECT_EQ(KxNCre::isProfiling, option == "1");
            KxCServiceController::requestShutdown();
        };
        EXPECT_EQ(runService(), 0);
        EXPECT_EQ(world().journal.find("profiler") != std::string::npos, option == "1") << option;
    }
    EXPECT_THAT(world().journal, HasSubstr("Profiling 0\nprofiler open KxContainerSP 90\nprofiler event ListCont"));
    EXPECT_THAT(world().journal, EndsWith("handler destroyed\nprofiler close\n"));
    std::size_t events = 0;
    for (std::size_t at = 0; (at = world().journal.find("profiler event ", at) + 1) != 0; ++events) {
    }
    EXPECT_EQ(events, 31U);
}

TEST_F(Process, OnlyTheTwoSignalsEndTheWait) {
    KxCServiceController controller;
    controller.install(*world().masterErrors);
    world().journal.clear();
    std::thread waiting([&] { controller.waitForShutdown(); });
    KxCServiceController::onSignal(*world().masterErrors, 1);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(world().journal, "3: Cannot handle signal 1.\n");
    std::signal(SIGUSR1, [](int) {});
    pthread_kill(waiting.native_handle(), SIGUSR1);  // interrupts the wait, which goes on
    std::this_thread::sleep_for(20ms);
    KxCServiceController::onSignal(*world().masterErrors, 2);
    waiting.join();
    EXPECT_EQ(world().journal,
              "3: Cannot handle signal 1.\n2: Shutdown requested (signal 2).\n2: Shutdown requested (eventfd).\n\n");
    controller.remove();
    world().journal.clear();
    controller.waitForShutdown();
    EXPECT_EQ(world().journal, "4: invalid shutdown event fd\n");
}

TEST_F(Process, WithoutAnEventDescriptorItEndsAtOnce) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers look at objects through descriptors of their own";
#endif
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    world().onInitialized = [&] { setrlimit(RLIMIT_NOFILE, &before); };
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(runService(), 0);
    EXPECT_THAT(world().journal, HasSubstr("0\n4: eventfd failed: 24\ninstallSignalHandler 15\n"));
    EXPECT_THAT(world().journal, HasSubstr("setServiceInitialized\n4: invalid shutdown event fd\nStop\n"));
}

TEST(Messages, ProgramNameIsRegisteredBeforeMain) {
    ASSERT_EQ(KxNDoubles::messageTables().size(), 1U);
    const KxResText* table = KxNDoubles::messageTables().front();
    EXPECT_EQ(table[0].id, KX_MESSAGE_PROGRAM_NAME);
    EXPECT_STREQ(table[0].text, "Korvex Container Service");
    EXPECT_EQ(table[1].text, nullptr);
}
