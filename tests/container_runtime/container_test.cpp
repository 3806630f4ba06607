// The container runtime as a whole, on file systems of its own, with a Podman from an image of the container tools.
#include <sched.h>
#include <sys/mount.h>

#include "KxContainer.h"
#include "KxErrorManager.h"
#include "KxJson.h"
#include "platform/common/storage_room.h"
#include "platform/container_runtime/logs/log_stream.h"
#include "service/paths.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;
using namespace KxNContainerPaths;
namespace fs = std::filesystem;

static void makeToolsImage(fs::perms ofPodman) {
    writeFile("/mnt/tools/bin/podman", "#!/bin/sh\nexec " KX_FAKE_PODMAN " \"$@\"\n");
    fs::permissions("/mnt/tools/bin/podman", ofPodman);
    fs::create_directories(fs::path(CONTAINER_TOOLS).parent_path());
    ASSERT_EQ(std::system(("/sbin/mkfs.ext4 -qF -d /mnt/tools " + CONTAINER_TOOLS + " 1M").c_str()), 0);
}

class NoEntries final : public KxCLogEntrySink {
    bool takeEntries(const std::vector<KxSLogEntry>&, const std::string&) override { return true; }
    bool takeGap(const std::optional<std::uint64_t>&, const std::string&, const std::string&) override { return true; }
    bool takeState(State, std::int32_t) override { return true; }
};

TEST(Container, WorksFromItsInitialisationToItsStopAndAgain) {
    if (!fs::exists("/dev/loop-control") || ::unshare(CLONE_NEWNS) != 0) {
        GTEST_SKIP() << "needs root and loop devices";
    }
    ASSERT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    for (const char* path : {"/mnt", "/run", "/var/lib"}) {
        ASSERT_EQ(::mount("tests", path, "tmpfs", 0, "size=64m"), 0) << path;
    }
    fs::create_directories("/userstorage1");
    ASSERT_EQ(::mount("tests", "/userstorage1", "tmpfs", 0, "size=20m"), 0);
    ::setenv("KX_CUSTOM_CONFIG", "/run/none.conf", 1);
    makeToolsImage(fs::perms::owner_all);
    const auto ask = [] {
        return KxCContainer::GetInstance()->ExecutePodmanRequest("/x", KxCCurlHandler::MethodType::GET, {}, "", false);
    };

    EXPECT_EQ(KxNCommon::roomFor("/userstorage1/missing/too"), (20U << 20) / 16 * 15);
    EXPECT_EQ(KxNCommon::roomFor("/proc"), 0U);
    EXPECT_EQ(KxNCommon::findStorageFault("/userstorage1/missing", 1 << 20), 0);
    EXPECT_EQ(KxNCommon::findStorageFault("/userstorage1", 21 << 20), ENOSPC);
    EXPECT_EQ(KxNCommon::findStorageFault("/proc", 0), 0);
    EXPECT_TRUE(KxNCommon::isNoRoom(ENOSPC) && KxNCommon::isNoRoom(EDQUOT) && !KxNCommon::isNoRoom(EIO));

    NoEntries sink;
    KxCContainer& runtime = *KxCContainer::GetInstance();
    EXPECT_EQ(runtime.GetContainerServiceStatus(true), KxCContainer::UNINITIALIZED);
    ASSERT_TRUE(runtime.init());
    EXPECT_EQ(runtime.GetContainerServiceStatus(false), KxCContainer::INITIALIZED);
    EXPECT_TRUE(fs::exists(PODMAN) && fs::exists(IMAGES_STORAGE_DIR) && fs::exists(COMPOSE_FILES_PATH));
    EXPECT_EQ(fs::status(CONTAINER_CERTS_DIR).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(PLUGINS_DIR).permissions(), static_cast<fs::perms>(0755));
    EXPECT_FALSE(runtime.GetPodmanState().isAnswering);
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(runtime.Start());
        EXPECT_EQ(runtime.GetContainerServiceStatus(true), KxCContainer::STARTED);
        EXPECT_EQ(ask().body, "OK");
        EXPECT_TRUE(runtime.GetPodmanState().isAnswering);
        EXPECT_TRUE(runtime.GetKnownContainers().empty());
        const auto session = std::make_shared<KxCContainer::KxSLogStreamSession>("web");
        EXPECT_EQ(runtime.FollowLogEntries("web", {}, sink, session).body,
                  "Podman's answer says nothing of a container");
        ASSERT_TRUE(runtime.Stop());
        EXPECT_EQ(runtime.GetContainerServiceStatus(true), KxCContainer::STOPPED);
        EXPECT_EQ(ask().status, 503);
        session->ending.cancel();
        EXPECT_EQ(runtime.FollowLogEntries("web", {}, sink, session).status, 200) << "the client has gone";
        EXPECT_FALSE(fs::exists(PODMAN));
        ASSERT_TRUE(runtime.init());
    }

    ASSERT_TRUE(runtime.Stop());
    makeToolsImage(fs::perms::owner_read);
    ASSERT_TRUE(runtime.init());
    EXPECT_FALSE(runtime.Start());
    EXPECT_EQ(runtime.GetContainerServiceStatus(false), KxCContainer::FAILED);

    EXPECT_EQ(runtime.FollowLogEntries("web", {}, sink, nullptr).status, 503);
    KxCErrorListPool pool;
    EXPECT_EQ(runtime.StreamPodmanRequest("/x", KxCCurlHandler::MethodType::GET, {}, pool, nullptr, nullptr).status,
              503);
    EXPECT_TRUE(KxCContainer::IsLogCursor("f..."));
    EXPECT_FALSE(KxCContainer::IsLogCursor("f"));

    writeFile(SETTINGS_FILE, R"({"enabled": false})");
    EXPECT_TRUE(runtime.IsContainerServiceEnabled(false));
    EXPECT_FALSE(runtime.IsContainerServiceEnabled(true));
    KxNJson::json result;
    EXPECT_EQ(runtime.CreateCompose(nullptr, result), 3);
}
