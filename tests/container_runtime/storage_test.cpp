#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>

#include "KxJson.h"
#include "log_recorder.h"
#include "platform/container_runtime/stores/inventory.h"
#include "platform/container_runtime/stores/user_storage.h"
#include "tests/support.h"

using namespace KxNContainer;
using namespace KxNTests;

namespace {

TEST(UserStorage, IsNeitherMissingNorFullNorReadOnly) {
    const TemporaryDirectory directory;
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", directory.path("").c_str(), "tmpfs", 0, "size=32m") != 0) {
        GTEST_SKIP() << "needs root to mount a small disk";
    }
    const auto problem = [](const std::string& path) -> std::string {
        try {
            checkUserStorage(path);
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    };
    EXPECT_THAT(problem(directory.path("missing")), EndsWith("missing' cannot be used: No such file or directory"));
    EXPECT_EQ(problem(directory.path("")), "");
    writeFile(directory.path("file"), "");
    EXPECT_THAT(problem(directory.path("file")), EndsWith("is not a directory"));
    rlimit unlimited{};
    ::getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit none{0, unlimited.rlim_max};
    ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_THAT(problem(directory.path("")), EndsWith("cannot be written: File too large"));
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    std::ofstream(directory.path("filler")) << std::string(20 << 20, 'x');
    EXPECT_THAT(problem(directory.path("")), EndsWith("is full: 12288 KiB free, at least 16384 KiB needed"));
    std::filesystem::remove(directory.path("filler"));
    ASSERT_EQ(::mount("none", directory.path("").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_THAT(problem(directory.path("")), EndsWith("cannot be written: Read-only file system"));
    ::umount(directory.path("").c_str());
}

TEST(Inventory, HoldsFilesOfAllDirectoriesAndOutlivesOddOnes) {
    const TemporaryDirectory directory;
    std::filesystem::create_directories(directory.path("images/sub"));
    std::filesystem::create_directories(directory.path("plugins"));
    std::ofstream(directory.path("images/b.tar")) << "123";
    std::ofstream(directory.path("images/sub/a.tar")) << "1";
    std::ofstream(directory.path("plugins/\xff.crp")) << "";
    std::ofstream(directory.path("plugins/config.json")) << "{}";
    std::ofstream(directory.path("plugins/.config.json.tmp")) << "{";
    std::filesystem::create_directory_symlink("..", directory.path("images/loop"));
    std::filesystem::create_symlink("nowhere", directory.path("images/dangling"));
    const std::string file = directory.path("inventory.json");
    Inventory inventory({{"image", directory.path("images")},
                         {"composeFile", directory.path("missing")},
                         {"plugin", directory.path("plugins"), "config.json"}},
                        file);
    ASSERT_TRUE(inventory.scan());
    auto document = KxNJson::json::parse(std::ifstream(file));
    for (auto& entry : document["files"]) {
        EXPECT_GT(entry["time"], 1500000000);
        entry["time"] = 0;
    }
    EXPECT_EQ(document.dump(),
              R"({"files":[{"name":"b.tar","kind":"image","size":3,"time":0},)"
              R"({"name":"sub/a.tar","kind":"image","size":1,"time":0},)"
              "{\"name\":\"\xef\xbf\xbd.crp\",\"kind\":\"plugin\",\"size\":0,\"time\":0}],\"isComplete\":true}");
    EXPECT_TRUE(takeLogLines().empty());

    std::filesystem::create_directories(directory.path("images/1/2/3/4/5/6/7/8/9/10/11/12"));
    ASSERT_TRUE(inventory.scan());
    EXPECT_THAT(takeLogLines(), ElementsAre(Pair(3, HasSubstr("too deep"))));
    EXPECT_FALSE(KxNJson::json::parse(std::ifstream(file))["isComplete"]);
}

TEST(Inventory, TakesNoMoreFilesThanItsBoundFromAllDirectoriesTogether) {
    const TemporaryDirectory directory;
    for (int number = 0; number < 10'001; ++number) {
        writeFile(directory.path((number < 6'000 ? "a/" : "b/") + std::to_string(number)), "");
    }
    const std::string file = directory.path("inventory.json");
    ASSERT_TRUE(Inventory({{"image", directory.path("a")}, {"plugin", directory.path("b")}}, file).scan());
    const auto document = KxNJson::json::parse(readFile(file));
    EXPECT_EQ(document["files"].size(), 10'000U);
    EXPECT_FALSE(document["isComplete"]);
    EXPECT_THAT(takeLogLines(), ElementsAre(Pair(3, HasSubstr("b' is not complete: it holds more files"))));
}

}  // namespace
