#include "platform/web_api/access/token_file.h"

#include "tests/support.h"

using namespace KxNTests;

#include <sys/stat.h>

#include <set>

using namespace KxNTamberWebApi;

namespace {

const std::string secret = "0123456789abcdefABCDEF-._~+/0123==";

class TokenFileTest : public testing::Test {
protected:
    void write(const std::string& text, mode_t mode = 0600) {
        writeFile(path, text);
        ::chmod(path.c_str(), mode);
    }

    void refuse(const std::string& reason) {
        EXPECT_FALSE(loadOrCreateToken(path, error));
        EXPECT_THAT(error, HasSubstr(reason));
    }

    const TemporaryDirectory directory;
    const std::filesystem::path path = directory.path("sub/api-token");
    std::string error;
};

TEST_F(TokenFileTest, StartsAtTheSameTimeAgreeOnOneToken) {
    for (int round = 0; round < 20; ++round) {
        std::filesystem::remove_all(path.parent_path());
        std::vector<std::optional<std::string>> tokens(4);
        onThreads(4, [&](int number) {
            std::string ownError;
            tokens[static_cast<std::size_t>(number)] = loadOrCreateToken(path, ownError);
        });
        EXPECT_TRUE(tokens[0]);
        EXPECT_EQ(std::set(tokens.begin(), tokens.end()).size(), 1u);
    }
}

TEST_F(TokenFileTest, TakesOneLineAndDoesNotRepeatWhatIsNone) {
    for (const char* ending : {"", "\n", "\r\n"}) {
        write(secret + ending, 0400);
        EXPECT_EQ(loadOrCreateToken(path, error), secret) << error;
    }
    for (const std::string& text :
         {std::string("\n"), std::string("short"), secret + "\n\n", secret + "\n" + secret + "\n", " " + secret,
          secret + "\"", secret + std::string(1, '\0'), secret + "\xC3\xA9", std::string(1025, 'a'),
          std::string(100000, 'a')}) {
        write(text);
        refuse("'" + path.string() + "' does not hold one line");
        EXPECT_THAT(error, Not(HasSubstr(secret)));
    }
}

TEST_F(TokenFileTest, RefusesWhatIsNotOursAloneAndWhatIsNoRegularFileWithoutBlocking) {
    write(secret, 0610);
    refuse("can be accessed by group or others");
    write(secret);
    if (::chown(path.c_str(), 65534, 65534) == 0) {
        refuse("belongs to user 65534");
    }
    std::filesystem::remove(path);
    std::filesystem::create_directories(path);
    refuse("is not a regular file");
    std::filesystem::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    refuse("is not a regular file");
    std::filesystem::remove(path);
    std::filesystem::create_symlink("elsewhere", path);
    refuse("is a symbolic link");
    std::filesystem::remove_all(path.parent_path());
    std::ofstream(path.parent_path()) << "a file where the directory should be";
    refuse("Not a directory");
}

TEST(TokenVerifierTest, AcceptsTheTokenAndNothingNearIt) {
    const TokenVerifier verifier(secret);
    EXPECT_TRUE(verifier.matches(secret));
    for (const std::string& other : {std::string(), secret.substr(1), secret.substr(0, secret.size() - 1), secret + "x",
                                     std::string(16384, 'x')}) {
        EXPECT_FALSE(verifier.matches(other)) << other;
    }
    std::string flipped = secret;
    flipped.back() = static_cast<char>(flipped.back() ^ 1);
    EXPECT_FALSE(verifier.matches(flipped));
}

}  // namespace
