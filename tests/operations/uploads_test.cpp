#include <sys/mount.h>

#include "tests/operations/Harness.h"

using namespace KxNTests;

class Uploads : public Operations {
protected:
    Uploads() { world().journal.clear(); }

    std::int32_t compose(const char* fileName, std::string_view data, std::uint64_t offset = 0) {
        return chunk("uploadComposeFile", fileName, data, offset);
    }
};

const std::string DIRECTORY = "/userstorage1/container_rte/utilities/compose-files/";

static std::string withoutFile() {
    return "4: Upload callback called without an open file for thread " +
           std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id())) + "\n";
}

TEST_F(Uploads, ChunksLandAtTheirOffsetsInAnyOrder) {
    EXPECT_EQ(compose("a.yml", "abc"), 0);
    EXPECT_EQ(compose(nullptr, "ghi", 6), 0);
    EXPECT_EQ(compose("other name", "xxx", 3), 0);
    EXPECT_EQ(compose("", "def", 3), 0);
    EXPECT_EQ(readFile(DIRECTORY + "a.yml"), "abcdefghi") << "must be in the file before the finish";
    const std::string wrote = "1: Wrote chunk to '" + DIRECTORY + "a.yml': offset=";
    EXPECT_EQ(world().journal,
              wrote + "0, size=3\n" + wrote + "6, size=3\n" + wrote + "3, size=3\n" + wrote + "3, size=3\n");
}

TEST_F(Uploads, ChunkWithoutASessionOfItsThreadIsRefused) {
    EXPECT_EQ(compose("a.yml", "x", 4096), -1);
    EXPECT_EQ(world().journal, withoutFile());
    EXPECT_FALSE(std::filesystem::exists(DIRECTORY));
    EXPECT_EQ(compose("a.yml", "x"), 0);
    std::thread([&] {
        world().journal.clear();
        EXPECT_EQ(compose("a.yml", "y", 1), -1);
        EXPECT_EQ(world().journal, withoutFile());
    }).join();
}

TEST_F(Uploads, FirstChunkReplacesAnAbandonedSession) {
    EXPECT_EQ(compose("old.yml", "old"), 0);
    EXPECT_EQ(compose("new.yml", "long content"), 0);
    EXPECT_EQ(compose("new.yml", "new"), 0);
    EXPECT_THAT(call("uploadComposeFile"), HasSubstr(R"({"filename":"new.yml"})"));
    EXPECT_EQ(readFile(DIRECTORY + "old.yml"), "old");
    EXPECT_EQ(readFile(DIRECTORY + "new.yml"), "new");
    EXPECT_THAT(call("uploadComposeFile"), HasSubstr("No compose YAML file was uploaded"));
}

TEST_F(Uploads, NameIsAppendedAsItIs) {
    EXPECT_EQ(compose("../images", "2"), 0);
    EXPECT_EQ(readFile("/userstorage1/container_rte/utilities/images"), "2");
    world().journal.clear();
    EXPECT_EQ(chunk("uploadImage", "x.tar", "3"), -1) << "a file stands where the directory should";
    EXPECT_EQ(compose("no/such/place", "4"), -1);
    EXPECT_EQ(compose("", "5", 1), 0) << "the earlier session stays when opening fails";
    EXPECT_EQ(world().journal, "4: Failed to create upload dir: File exists\n4: Failed to open file: " + DIRECTORY +
                                   "no/such/place\n1: Wrote chunk to '" + DIRECTORY + "../images': offset=1, size=1\n");
}

TEST_F(Uploads, FullDiskFailsTheChunkThatMetIt) {
    std::filesystem::create_directories(DIRECTORY);
    ASSERT_EQ(mount("tests", DIRECTORY.c_str(), "tmpfs", 0, "size=64k"), 0);
    const std::string data(40000, 'x');
    EXPECT_EQ(compose("big", data), 0);
    world().journal.clear();
    EXPECT_EQ(compose("big", data, 40000), -1);
    EXPECT_EQ(compose("big", "x", 1), -1) << "the session stays broken";
    const std::string failed = "4: Error writing to upload file '" + DIRECTORY + "big'\n";
    EXPECT_EQ(world().journal, failed + failed);
    std::filesystem::remove(DIRECTORY + "big");
    EXPECT_EQ(compose("small", "x"), 0);
    EXPECT_EQ(compose("small", "x", ~std::uint64_t{0} - 1), -1) << "an offset no file can have";
    handler.reset();
    ASSERT_EQ(umount(DIRECTORY.c_str()), 0);
}
