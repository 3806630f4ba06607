// The administrator's tool: what it takes, what it says, and what the file then holds.
#include <iomanip>

#include "KxJson.h"
#include "platform/admin/audit_commands.h"
#include "platform/admin/identity_commands.h"
#include "platform/common/rfc3339.h"
#include "platform/common/sha256.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNAdmin;
using KxNJson::json;

namespace {

class Admin : public testing::Test {
protected:
    /// What a command says, "OUT / TOLD"; the text of its refusal, behind "usage: " when its words were not right.
    std::string run(const std::string& text) {
        Words words;
        std::istringstream parts(text);
        for (std::string word; parts >> std::quoted(word, '\'');) {
            words.push_back(word);
        }
        const std::string command = words.front();
        words.erase(words.begin());
        std::ostringstream out;
        std::ostringstream told;
        const Output output{out, told};
        try {
            if (command == "verify") {
                holds = verifyAudit(path, words, output);
            } else {
                (command == "add"      ? addIdentity
                 : command == "remove" ? [](auto& file, Words given, auto& to) { removeIdentity(file, given, to); }
                 : command == "renew"  ? renewIdentity
                                       : listIdentities)(path, words, output);
            }
        } catch (const UsageError& error) {
            return "usage: "s + error.what();
        } catch (const std::exception& failure) {
            return failure.what();
        }
        return out.str() + "/ " + told.str();
    }

    json entry(const std::string& name) {
        const json file = json::parse(readFile(path));
        for (const json& one : file["identities"]) {
            if (one["name"] == name) {
                return one;
            }
        }
        return {};
    }

    std::int64_t daysLeft(const std::string& name) {
        const auto left = *KxNCommon::parseTime(entry(name)["expires"].get<std::string>()) - KxNCommon::wallNow();
        return std::chrono::round<std::chrono::days>(left).count();
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("identities.json");
    bool holds = false;
};

TEST_F(Admin, WordsThatAreNotRightChangeNothing) {
    const std::pair<const char*, const char*> rows[] = {
        {"add a", "usage: --role is missing: viewer, operator or administrator"},
        {"add a --role", "usage: --role needs a value"},
        {"add a --role=", "usage: --role needs a value"},
        {"add a --role viewer --role=viewer", "usage: --role is given twice"},
        {"add --role viewer", "usage: the NAME is missing"},
        {"add a b --role viewer", "usage: 'b' is too much"},
        {"add token --role viewer", "usage: 'token' is no name: it takes "},
        {"add a --role viewer --expires 0", "usage: a token that expires at once lets nobody in; "},
        {"add a --role viewer --expires -1", "usage: --expires takes a number of days from 0 to 36500, not '-1'"},
        {"add a --role viewer --expires 36501", "usage: --expires takes a number of days"},
        {"add a --role viewer --expires 99999999999", "usage: --expires takes a number of days"},
        {"list a", "usage: 'a' is too much"},
        {"verify", "there is no audit record at '"},
        {"verify --all", "usage: there is no option '--all'"}};
    for (const auto& [words, answer] : rows) {
        EXPECT_THAT(run(words), StartsWith(answer)) << words;
        EXPECT_FALSE(std::filesystem::exists(path)) << words;
    }
    writeFile(path, "{");
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(0600));
    EXPECT_THAT(run("add a --role viewer"), EndsWith("; nothing was changed: mend the file, or move it away"));
    EXPECT_EQ(readFile(path), "{");
}

TEST_F(Admin, AnIdentityIsAddedRenewedListedAndRemoved) {
    const std::string added = run("add ann --role operator --expires 30");
    EXPECT_THAT(added, HasSubstr("\n/ Added 'ann' as operator, until " + entry("ann")["expires"].get<std::string>() +
                                 ".\nThe token is shown only now:\n"));
    const std::string token = added.substr(0, added.find('\n'));
    EXPECT_THAT(token, testing::MatchesRegex("[A-Za-z0-9_-]{43}"));
    EXPECT_EQ(entry("ann")["tokenSha256"], KxNCommon::sha256Hex(token));
    EXPECT_EQ(daysLeft("ann"), 30);
    EXPECT_THAT(run("add ann --role viewer"), StartsWith("there is an identity 'ann' already; "));
    const std::string shutOut = run("add bob --role viewer --expires 0 --certificate 'CN=bob,O=x'");
    EXPECT_EQ(shutOut, "/ Added 'bob' as viewer, until " + entry("bob")["expires"].get<std::string>() +
                           ", for who shows the certificate 'CN=bob,O=x'.\n");
    EXPECT_THAT(run("add c --role viewer --certificate CN=c"), HasSubstr("as viewer, without an end, for"));

    const std::string text = run("list --json");
    const json list = json::parse(text.substr(0, text.rfind("/ ")))["identities"];
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["shows"], "token");
    EXPECT_EQ(list[0]["hasExpired"], false);
    EXPECT_EQ(list[1]["certificateSubject"], "CN=bob,O=x");
    EXPECT_EQ(list[1]["hasExpired"], true);
    const auto at = [&](const char* name, const char* key) { return entry(name)[key].get<std::string>(); };
    EXPECT_EQ(run("list"),
              "NAME  ROLE      CREATED               EXPIRES                       SHOWS\nann   operator  " +
                  at("ann", "created") + "  " + at("ann", "expires") + "          token\nbob   viewer    " +
                  at("bob", "created") + "  expired " + at("bob", "expires") +
                  "  certificate CN=bob,O=x\nc     viewer    " + at("c", "created") +
                  "  never                         certificate CN=c\n/ ");

    const std::string renewed = run("renew ann");
    EXPECT_THAT(renewed, HasSubstr("/ Renewed 'ann', until " + at("ann", "expires") + "; the old token is void.\n"));
    EXPECT_NE(renewed.substr(0, 43), token);
    EXPECT_EQ(entry("ann")["tokenSha256"], KxNCommon::sha256Hex(renewed.substr(0, 43)));
    EXPECT_EQ(daysLeft("ann"), 30);
    run("renew ann --expires 7");
    EXPECT_EQ(daysLeft("ann"), 7);
    EXPECT_THAT(run("renew c"), StartsWith("'c' shows a certificate and has no end: there is nothing to renew; "));
    EXPECT_THAT(run("renew c --expires 5"), AllOf(StartsWith("/ Renewed 'c', until "), EndsWith("Z.\n")));
    EXPECT_EQ(daysLeft("c"), 5);
    EXPECT_THAT(run("renew c"), StartsWith("/ Renewed 'c', until "));
    EXPECT_EQ(daysLeft("c"), 5);

    EXPECT_EQ(run("remove ann"), "/ Removed 'ann'.\n");
    EXPECT_EQ(entry("ann"), json());
    EXPECT_THAT(run("remove bob"), AllOf(StartsWith("/ Removed 'bob'.\nBeware: a certificate with the subject"),
                                         HasSubstr("identity add bob --role viewer --expires 0 --certificate 'CN=b")));
    EXPECT_NE(entry("c"), json());
}

TEST_F(Admin, AnAuditRecordIsVerified) {
    writeFile(path, "");
    EXPECT_EQ(run("verify"), "The chain holds: 0 entries.\n/ ");
    EXPECT_TRUE(holds);
    const std::string entry = R"({"seq":1,"previous":")" + std::string(64, '0') + "\"}";
    writeFile(path + ".1", entry + "\n");
    writeFile(path, R"({"seq":2,"previous":")" + KxNCommon::sha256Hex(entry) + "\"}\n");
    EXPECT_EQ(run("verify"), "The chain holds: 2 entries, from 1 to 2.\n/ ");
    EXPECT_TRUE(holds);
    EXPECT_THAT(run("verify " + path),
                AllOf(StartsWith("The chain holds: 1 entries, from 2 to 2.\n/ Note: "), EndsWith(".\n")));
    EXPECT_THAT(run("verify " + path + ".1"), StartsWith("The chain holds: 1 entries, from 1 to 1.\n/ "));
    writeFile(path, "x\n");
    EXPECT_THAT(run("verify"), StartsWith("The chain is broken: "));
    EXPECT_FALSE(holds);
}

}  // namespace
