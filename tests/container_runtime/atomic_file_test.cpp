#include "platform/common/atomic_file.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "log_recorder.h"
#include "tests/support.h"

using namespace KxNCommon;
using namespace KxNTests;

static int directorySyncError = 0;

/// The system's, but for directories whose disk fails.
extern "C" int fsync(int descriptor) {
    struct stat status {};
    if (directorySyncError != 0 && ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = directorySyncError;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

static std::string readBack(const std::string& path) {
    std::string contents;
    std::string error;
    EXPECT_EQ(readSmallFile(path, 1 << 20, contents, error), ReadResult::Ok) << error;
    return contents;
}

TEST(AtomicFile, ReplacementHasContentsModeAndLeavesNothingBeside) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("settings");
    std::ofstream(directory.path(".settings.tmp")) << "what a killed writer left, longer than the new contents";
    std::string error;
    ASSERT_TRUE(replaceFile(path, "a much longer old text", 0644, error)) << error;
    ASSERT_TRUE(replaceFile(path, "new", 0600, error)) << error;
    EXPECT_EQ(readBack(path), "new");
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(directory.fileNames(), std::vector<std::string>{"settings"});
}

TEST(AtomicFile, FailureNamesPathAndReasonAndKeepsTheOldState) {
    const TemporaryDirectory directory;
    std::string error;
    EXPECT_FALSE(replaceFile(directory.path("missing/file"), "x", 0644, error));
    EXPECT_THAT(error, AllOf(HasSubstr("missing/"), HasSubstr("No such file or directory")));

    std::filesystem::create_directories(directory.path("taken/inside"));
    EXPECT_FALSE(replaceFile(directory.path("taken"), "x", 0644, error));
    EXPECT_THAT(error, AllOf(HasSubstr("taken'"), HasSubstr("Is a directory")));
    EXPECT_EQ(directory.fileNames(), std::vector<std::string>{"taken"});
}

TEST(AtomicFile, CountsAsReplacedAlsoWhenTheDirectoryCannotBeSynced) {
    const TemporaryDirectory directory;
    std::string error;
    directorySyncError = EIO;
    EXPECT_TRUE(replaceFile(directory.path("settings"), "new", 0644, error)) << error;
    directorySyncError = 0;
    EXPECT_EQ(readBack(directory.path("settings")), "new");
    EXPECT_THAT(takeLogLines(),
                ElementsAre(Pair(3, AllOf(HasSubstr("settings' was written"), HasSubstr("Input/output")))));
}

TEST(AtomicFile, ReaderRefusesWhatIsNoSmallRegularFile) {
    const TemporaryDirectory directory;
    std::ofstream(directory.path("big")) << std::string(101, 'x');
    ASSERT_EQ(::mkfifo(directory.path("pipe").c_str(), 0600), 0);
    std::string contents = "untouched";
    std::string error;
    EXPECT_EQ(readSmallFile(directory.path("none"), 100, contents, error), ReadResult::Missing);
    EXPECT_EQ(readSmallFile(directory.path("big"), 100, contents, error), ReadResult::TooLarge);
    EXPECT_THAT(error, HasSubstr("larger than 100 bytes"));
    EXPECT_EQ(readSmallFile(directory.path("pipe"), 100, contents, error), ReadResult::Failed);
    EXPECT_THAT(error, HasSubstr("not a regular file"));
    EXPECT_EQ(contents, "untouched");
    EXPECT_EQ(readSmallFile(directory.path("big"), 101, contents, error), ReadResult::Ok);
}

TEST(AtomicFile, ConcurrentWritersNeverMixOrFail) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("settings");
    onThreads(4, [&path](int writer) {
        for (int round = 0; round < 50; ++round) {
            const auto size = static_cast<std::size_t>(5000 + 1000 * writer);
            std::string error;
            EXPECT_TRUE(replaceFile(path, std::string(size, static_cast<char>('a' + writer)), 0644, error)) << error;
            const std::string seen = readBack(path);
            EXPECT_EQ(seen.find_first_not_of(seen[0]), std::string::npos);
            EXPECT_EQ(seen.size(), 5000U + 1000U * static_cast<unsigned>(seen[0] - 'a'));
        }
    });
    EXPECT_EQ(directory.fileNames(), std::vector<std::string>{"settings"});
}
