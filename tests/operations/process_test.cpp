#include <sys/resource.h>

#include <cstring>

#include "api/profiling.h"
#include "service/KxCServiceController.h"
#include "service/run_service.h"
#include "tests/operations/Harness.h"

using namespace KxNTests;

namespace {

constexpr const char* MARKER = "/run/KxContainerRTE.enabled";

const std::string STARTED =
    "getMasterErrorList\nmessages init\nclock init\ngetOption ContainerRuntime Profiling 0\n"
    "server create 16\nserver init\nserver registerHandler\nserver start 5\n2: TAMBER WebApi server started\n"
    "isSingletonProcess 0\n";
const std::string INSTALLED = "installSignalHandler 15\ninstallSignalHandler 2\nenabled?\n";
const std::string WAITED =
    "setServiceInitialized\n2: Shutdown requested (signal 15).\n2: Shutdown requested (eventfd).\n\n";
const std::string SERVER_GONE = "server stop\nserver destroyed\n";
const std::string MESSAGES_GONE = "sendErrorList 0\nflushMessageBuffer 100\ncloseClient\n";
const std::string WENT_WRONG = "4: Something went wrong!\n";
const std::string ENDED = "removeSignalHandler 15\nremoveSignalHandler 2\nhandler detached\nhandler destroyed\n";

class Process : public testing::Test {
protected:
    Process() {
        KxNDoubles::reset();
        std::filesystem::remove(MARKER);
        KxCErrorManager::getSingleton();
        world().journal.clear();
        world().onInitialized = [this] {
            markerWhileServing = std::filesystem::exists(MARKER) ? readFile(MARKER) : "none";
            KxCServiceController::onSignal(*world().masterErrors, 15);
        };
    }

    std::string markerWhileServing;
};

TEST_F(Process, StartsServesAndEndsInOrder) {
    writeFile(MARKER, "a longer text from before");
    EXPECT_EQ(runService(), 0);
    EXPECT_EQ(world().journal,
              STARTED + INSTALLED + "init\nStart\n" + WAITED + "Stop\n" + SERVER_GONE + MESSAGES_GONE + ENDED);
    EXPECT_EQ(markerWhileServing, "1\n");
    EXPECT_FALSE(std::filesystem::exists(MARKER));
}

TEST_F(Process, MakesTheErrorManagerThatIsNotThereYet) {
    KxCErrorManager::instance = nullptr;
    EXPECT_EQ(runService(), 0);
    EXPECT_TRUE(world().journal.starts_with("KxCErrorManager::getSingleton\ngetMasterErrorList\n"));
}

TEST_F(Process, DisabledServiceRemovesAStaleMarkerAndStopsOnce) {
    writeFile(MARKER, "1\n");
    world().isEnabled = false;
    EXPECT_EQ(runService(), 0);
    EXPECT_EQ(world().journal, STARTED + INSTALLED + "2: Container service is disabled by configuration.\n" + WAITED +
                                   "Stop\n" + SERVER_GONE + MESSAGES_GONE + ENDED);
    EXPECT_EQ(markerWhileServing, "none");
}

TEST_F(Process, RuntimeThatFailsDecidesTheExitStatus) {
    world().initResult = false;
    EXPECT_EQ(runService(), 1);
    EXPECT_EQ(world().journal, STARTED + INSTALLED + "init\n4: Failed to initialize the service\n" + WAITED +
                                   SERVER_GONE + MESSAGES_GONE + WENT_WRONG + ENDED);
    EXPECT_EQ(markerWhileServing, "1\n");

    world().initResult = true;
    world().startResult = false;
    world().journal.clear();
    EXPECT_EQ(runService(), 1);
    EXPECT_EQ(world().journal, STARTED + INSTALLED + "init\nStart\n4: Failed to start the service\nStop\n" + WAITED +
                                   SERVER_GONE + MESSAGES_GONE + WENT_WRONG + ENDED);
}

TEST_F(Process, SecondInstanceLeavesEverythingAlone) {
    writeFile(MARKER, "1\n");
    world().isSingleton = false;
    EXPECT_EQ(runService(), 1);
    EXPECT_EQ(world().journal, STARTED +
                                   "2: Another instance of the container service is already running\n"
                                   "handler detached\nhandler destroyed\n");
    EXPECT_EQ(readFile(MARKER), "1\n");
}

TEST_F(Process, ServerThatFailsLeavesTheServiceRunning) {
    const std::string steps[] = {"create 16", "init", "registerHandler", "start 5"};
    std::string done;
    for (const std::string& step : steps) {
        SCOPED_TRACE(step);
        KxNDoubles::World& fresh = (KxNDoubles::reset(), world());
        fresh.failingServerCall = step.substr(0, step.find(' '));
        fresh.onInitialized = [] { KxCServiceController::requestShutdown(); };
        done += "server " + step + "\n";
        EXPECT_EQ(runService(), 1);
        EXPECT_NE(fresh.journal.find(done + "error added: server " + step + " failed\nisSingletonProcess 0\n"),
                  std::string::npos)
            << fresh.journal;
        EXPECT_EQ(fresh.journal.find("server destroyed") != std::string::npos, step != "create 16");
        EXPECT_NE(fresh.journal.find("init\nStart\n"), std::string::npos);
    }
}

TEST_F(Process, MarkerThatCannotBeWrittenIsIgnored) {
    std::filesystem::create_directory(MARKER);
    EXPECT_EQ(runService(), 0);
    EXPECT_NE(world().journal.find("enabled?\ninit\nStart\n"), std::string::npos);
}

TEST_F(Process, ProfilingIsOnForExactlyOne) {
    const auto run = [](const std::string& option) {
        KxNDoubles::reset();
        world().options["Profiling"] = option;
        world().onInitialized = [&option] {
            EXPECT_EQ(KxNCre::isProfiling, option == "1");
            KxCServiceController::requestShutdown();
        };
        EXPECT_EQ(runService(), 0);
        return world().journal;
    };
    for (const char* option : {"0", "", "11", "1 ", "yes", "true", "10"}) {
        EXPECT_EQ(run(option).find("profiler"), std::string::npos) << option;
    }
    std::string events = "Profiling 0\nprofiler open KxContainerSP 90\n";
    for (const std::string event : {"ListContainers",     "DeleteContainer",   "StartContainer",
                                    "StopContainer",      "GetContainerLogs",  "GetContainerLogsSetWebSocket",
                                    "ListImages",         "UploadImage",       "RemoveImage",
                                    "ListPlugins",        "UploadPlugin",      "DeletePlugin",
                                    "ActivatePlugin",     "GetSettings",       "PatchSettings",
                                    "GetEnable",          "PatchEnable",       "ComposeCreate",
                                    "ComposeStart",       "ComposeStop",       "ComposeRemove",
                                    "ListComposeFiles",   "UploadComposeFile", "DeleteComposeFile",
                                    "ListCerts",          "UploadCertificate", "DeleteCertificate",
                                    "UploadPrivateKey",   "DeletePrivateKey",  "UploadCaCertificate",
                                    "DeleteCaCertificate"}) {
        events += "profiler event " + event + "\n";
    }
    const std::string journal = run("1");
    EXPECT_THAT(journal, HasSubstr(events + "server create 16\n"));
    EXPECT_THAT(journal, EndsWith("handler destroyed\nprofiler close\n"));
}

TEST_F(Process, OnlyTheTwoSignalsEndTheWait) {
    KxCServiceController controller;
    controller.install(*world().masterErrors);
    world().journal.clear();
    std::thread waiting([&] { controller.waitForShutdown(); });
    KxCServiceController::onSignal(*world().masterErrors, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(world().journal, "3: Cannot handle signal 1.\n");
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
    EXPECT_NE(world().journal.find("4: eventfd failed: 24\n" + INSTALLED), std::string::npos) << world().journal;
    EXPECT_NE(world().journal.find("setServiceInitialized\n4: invalid shutdown event fd\nStop\n"), std::string::npos);
}

TEST(Messages, ProgramNameIsRegisteredBeforeMain) {
    ASSERT_EQ(KxNDoubles::messageTables().size(), 1U);
    const KxResText* table = KxNDoubles::messageTables().front();
    EXPECT_EQ(table[0].id, KX_MESSAGE_PROGRAM_NAME);
    EXPECT_STREQ(table[0].text, "Korvex Container Service");
    EXPECT_EQ(table[1].text, nullptr);
}

}  // namespace
