// Who else may come in: the identities file, and addresses that guess.

#include "platform/web_api/identities/identities.h"

#include <sys/stat.h>

#include <set>

#include "KxJson.h"
#include "api/endpoints.h"
#include "platform/console/endpoints.h"
#include "platform/web_api/access/access_rules.h"
#include "platform/web_api/access/roles.h"
#include "platform/web_api/access/wrong_tokens.h"
#include "platform/web_api/description/openapi.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNTamberWebApi;
using KxNJson::json;

namespace {

json entry(const std::string& name, const json& changes = json::object()) {
    json made = {{"name", name},
                 {"role", "viewer"},
                 {"tokenSha256", KxNCommon::sha256Hex("token-of-" + name)},
                 {"created", "2026-01-01T00:00:00Z"},
                 {"expires", nullptr}};
    for (const auto& [key, value] : changes.items()) {
        made[key] = value;
    }
    return made;
}

TEST(Roles, EachOperationHasARowAndEachRowAnOperation) {
    std::set<std::string_view> operations = {openApiEndpoint.operationId};
    for (const auto* table : {KxNCre::ENDPOINTS, KxNConsole::endpoints()}) {
        for (; *table != nullptr; ++table) {
            operations.insert((*table)->operationId);
        }
    }
    for (const std::string_view operation : operations) {
        EXPECT_TRUE(findRequiredRole(operation)) << operation << " asks for no role yet";
    }
    for (const OperationRole& row : operationRoles()) {
        EXPECT_TRUE(operations.count(row.operationId)) << row.operationId << " is no operation";
    }
    EXPECT_EQ(requiredRole("somethingNew"), ROLE_ADMINISTRATOR);
}

TEST(IdentitiesFileTest, AnythingWrongIsSaidWithTheEntry) {
    const std::string digest(64, 'a');
    const std::pair<std::vector<json>, const char*> rows[] = {
        {{entry("")}, "entry 1 has a \"name\""},
        {{entry("a b")}, "entry 1 has a \"name\""},
        {{entry(std::string(65, 'a'))}, "entry 1 has a \"name\""},
        {{entry("token")}, "entry 1 has a \"name\""},
        {{entry("a"), 7}, "entry 2 is no object"},
        {{entry("a", {{"role", "boss"}})}, "identity 'a' has a \"role\""},
        {{entry("a", {{"role", "none"}})}, "identity 'a' has a \"role\""},
        {{entry("a", {{"certificateSubject", "CN=a"}})}, "needs either"},
        {{entry("a", {{"tokenSha256", nullptr}})}, "needs either"},
        {{entry("a", {{"tokenSha256", "abc"}})}, "64 hexadecimal digits"},
        {{entry("a", {{"expires", "tomorrow"}})}, "RFC 3339"},
        {{entry("a", {{"expires", 5}})}, "\"expires\" that is no text"},
        {{entry("a"), entry("a", {{"tokenSha256", digest}})}, "identity 'a' is there twice"},
        {{entry("a", {{"tokenSha256", digest}}), entry("b", {{"tokenSha256", digest}})}, "of another one"}};
    for (const auto& [entries, told] : rows) {
        try {
            parseIdentities({{"identities", entries}});
            ADD_FAILURE() << "taken: " << json(entries);
        } catch (const std::invalid_argument& failure) {
            EXPECT_THAT(failure.what(), HasSubstr(told));
        }
    }
    for (const json& document : {json(), json::array(), json{{"identities", 1}}}) {
        EXPECT_THROW(parseIdentities(document), std::invalid_argument);
    }
    const auto good =
        parseIdentities({{"identities", {entry("A.b_c-1@x", {{"expires", "2026-11-24T09:00:00.5+01:00"}})}}});
    EXPECT_EQ(good[0].expires, KxNCommon::parseTime("2026-11-24T08:00:00.500Z"));
}

TEST(Rfc3339, ATimeIsReadAsTheMomentThatItIsOrNotAtAll) {
    const std::pair<const char*, const char*> good[] = {{"2026-11-24T08:30:00Z", "2026-11-24T08:30:00.000Z"},
                                                        {"2024-02-29t23:59:60.1239z", "2024-03-01T00:00:00.123Z"},
                                                        {"2026-01-01 01:30:00+23:59", "2025-12-31T01:31:00.000Z"},
                                                        {"2026-12-31T23:00:00.05-01:30", "2027-01-01T00:30:00.050Z"}};
    for (const auto& [text, moment] : good) {
        ASSERT_TRUE(KxNCommon::parseTime(text)) << text;
        EXPECT_EQ(KxNCommon::formatTime(*KxNCommon::parseTime(text)), moment);
    }
    const std::string whole = "2026-11-24T08:30:00Z";
    for (std::size_t i = 0; i < whole.size(); ++i) {
        EXPECT_FALSE(KxNCommon::parseTime(whole.substr(0, i))) << "cut at " << i;
        std::string spoiled = whole;
        spoiled[i] = '/';
        EXPECT_FALSE(KxNCommon::parseTime(spoiled)) << spoiled;
    }
    for (const char* bad :
         {"2026-02-29T08:30:00Z", "2026-13-01T08:30:00Z", "2026-11-24T24:30:00Z", "2026-11-24T08:60:00Z",
          "2026-11-24T08:30:61Z", "2026-11-24T08:30:00.Z", "2026-11-24T08:30:00+24:00", "2026-11-24T08:30:00+01:60",
          "2026-11-24T08:30:00 01:00", "2026-11-24T08:30:00+01-00", "2026-11-24T08:30:00+01:000",
          "2026-11-24T08:30:00+0100", "2026-11-24T08:30:00+1:00", "2026-11-24T08:30:00Z "}) {
        EXPECT_FALSE(KxNCommon::parseTime(bad)) << bad;
    }
}

class IdentitiesTest : public testing::Test {
protected:
    void write(const json& entries, mode_t mode = 0600) { writeText(json{{"identities", entries}}.dump(), mode); }
    void writeText(const std::string& text, mode_t mode = 0600) {
        writeFile(path + ".new", text);
        ::chmod((path + ".new").c_str(), mode);
        std::filesystem::rename(path + ".new", path);
    }
    Grant grantOf(const Identities& identities, const std::string& name) {
        const auto list = identities.current();
        const auto* const found = list->findByToken("token-of-" + name);
        return found != nullptr ? found->grant : 0;
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("identities.json");
};

TEST_F(IdentitiesTest, AGrantLastsAsLongAsItsIdentityIsUnchanged) {
    const json subject = {{"tokenSha256", nullptr}, {"certificateSubject", "CN=c,O=x"}};
    write(json::array({entry("a"), entry("b"), entry("c", subject)}));
    Identities identities(path);
    const Grant a = grantOf(identities, "a");
    const Grant b = grantOf(identities, "b");
    const Grant c = identities.current()->findByCertificate("CN=c,O=x")->grant;
    EXPECT_EQ(identities.current()->findByCertificate("CN=c"), nullptr);
    const auto now = KxNCommon::wallNow();
    write(json::array({entry("c", subject), entry("a", {{"role", "operator"}}), entry("d")}));
    identities.follow();
    const auto list = identities.current();
    EXPECT_FALSE(list->holds(a, now));
    EXPECT_FALSE(list->holds(b, now));
    EXPECT_TRUE(list->holds(c, now));
    EXPECT_NE(grantOf(identities, "a"), a);
    write(json::array({entry("c", subject), entry("d", {{"expires", "2026-01-02T00:00:00Z"}})}));
    identities.follow();
    EXPECT_TRUE(identities.current()->holds(c, now));
    EXPECT_FALSE(identities.current()->holds(grantOf(identities, "d"), now));
}

TEST_F(IdentitiesTest, TheLastGoodStateStaysAndABadStartLetsNobodyIn) {
    write(json::array({entry("a")}));
    Identities running(path);
    const Grant a = grantOf(running, "a");
    EXPECT_NE(a, 0u);
    for (const auto& spoil : std::initializer_list<std::function<void()>>{
             [&] { writeText("{"); }, [&] { write(json::array({entry("b")}), 0640); },
             [&] { std::filesystem::remove(path), std::filesystem::create_directory(path); }}) {
        spoil();
        running.follow();
        EXPECT_EQ(grantOf(running, "a"), a);
        EXPECT_TRUE(running.areKnown());
        const Identities started(path);
        EXPECT_FALSE(started.areKnown());
        EXPECT_EQ(started.current()->size(), 0u);
    }
    std::filesystem::remove(path);
    running.follow();
    EXPECT_EQ(running.current()->size(), 0u) << "without a file there is nobody";
    EXPECT_TRUE(Identities(path).areKnown());
}

/// What becomes of a request with these fields: the refusal's status, 0 for none, the role and who it is.
std::string tryAccess(AccessRules& rules, const std::string& fields, const std::string& subject, KxERole required,
                      const std::string& target = "/") {
    RequestParser parser;
    const std::string host = fields.find("Host:") == fields.npos ? "Host: localhost\r\n" : "";
    const auto fault = parseRequestHead(parser, "GET " + target + " HTTP/1.1\r\n" + host + fields + "\r\n");
    EXPECT_FALSE(fault) << fields;
    Caller caller;
    const auto refusal = rules.check(parser.get(), {"10.0.0.1", subject}, required, caller);
    return std::to_string(refusal ? refusal->status : 0) + " " + std::string(roleName(caller.role)) + " " +
           caller.identity;
}

TEST_F(IdentitiesTest, WhoComesInIsKnownAndNobodyElseComesIn) {
    const json old = {{"expires", "2026-01-02T00:00:00Z"}};
    json certificate = {{"tokenSha256", nullptr}, {"certificateSubject", "CN=c"}, {"role", "operator"}};
    json oldCertificate = old;
    oldCertificate.update({{"tokenSha256", nullptr}, {"certificateSubject", "CN=d"}});
    write(json::array({entry("a"), entry("b", old), entry("c", certificate), entry("d", oldCertificate)}));
    AccessRules rules(TokenVerifier("secret"), std::make_unique<Identities>(path));
    const auto bearer = [](const std::string& token) { return "Authorization: Bearer " + token + "\r\n"; };
    const std::string foreign = "Origin: http://evil\r\n";
    const std::tuple<std::string, const char*, KxERole, const char*> rows[] = {
        {"", "", ROLE_NONE, "0 none none"},
        {foreign + bearer("secret"), "CN=c", ROLE_VIEWER, "0 administrator token"},
        {"Sec-WebSocket-Protocol: kx.logs.v1, bearer.secret\r\n", "", ROLE_VIEWER, "0 administrator token"},
        {"Sec-WebSocket-Protocol: bearer.wrong\r\n", "", ROLE_NONE, "401 none none"},
        {"Authorization: Basic secret\r\n", "", ROLE_VIEWER, "401 none none"},
        {bearer("token-of-b"), "", ROLE_VIEWER, "401 none b"},
        {"", "CN=d", ROLE_VIEWER, "401 none d"},
        {bearer("wrong"), "CN=c", ROLE_VIEWER, "0 operator c"},
        {foreign, "CN=c", ROLE_VIEWER, "403 none CN=c"},
        {foreign + bearer("wrong"), "CN=c", ROLE_VIEWER, "403 none none"},
        {foreign, "", ROLE_VIEWER, "401 none none"},
        {foreign, "CN=c", ROLE_NONE, "0 none CN=c"},
        {"Origin: https://localhost\r\nHost: localhost:443\r\n", "CN=c", ROLE_VIEWER, "0 operator c"}};
    for (const auto& [fields, subject, required, outcome] : rows) {
        EXPECT_EQ(tryAccess(rules, fields, subject, required), outcome) << fields << subject;
    }
    EXPECT_TRUE(rules.holds(0));
    EXPECT_FALSE(rules.holds(12345));
    for (int guess = 0; guess < 10; ++guess) {
        tryAccess(rules, bearer("wrong"), "", ROLE_VIEWER);
    }
    EXPECT_EQ(tryAccess(rules, "", "CN=c", ROLE_VIEWER), "0 operator c");
    EXPECT_FALSE(rules.mustFollow());
    write(json::array());
    EXPECT_TRUE(rules.mustFollow());
    rules.follow();
    EXPECT_EQ(tryAccess(rules, "", "CN=c", ROLE_VIEWER), "0 administrator CN=c");
}

TEST(AccessRulesTest, WithoutATokenOnlyPagesFromElsewhereAreKeptOut) {
    AccessRules rules(std::nullopt);
    EXPECT_FALSE(rules.needsToken() || rules.mustFollow());
    EXPECT_TRUE(rules.holds(7));
    EXPECT_EQ(tryAccess(rules, "", "CN=c", ROLE_ADMINISTRATOR), "0 administrator CN=c");
    EXPECT_EQ(tryAccess(rules, "", "", ROLE_VIEWER, "http://evil/"), "403 none none");
    EXPECT_EQ(tryAccess(rules, "Host: evil\r\n", "", ROLE_VIEWER, "http://localhost/"), "0 administrator none");
}

TEST(WrongTokensTest, TenWithinAMinuteSlowTheOriginDownUntilAMinuteIsQuiet) {
    WrongTokens tokens;
    const auto noteAt = [&](std::initializer_list<std::int64_t> seconds) {
        for (const std::int64_t second : seconds) {
            tokens.note("10.0.0.1", 1000 * second);
        }
    };
    noteAt({0, 10, 20, 30, 40, 50, 60, 61, 62, 63});  // the first is a minute away from the tenth
    EXPECT_EQ(tokens.secondsToWait("10.0.0.1", 63'500), 0);
    noteAt({64});
    EXPECT_EQ(tokens.secondsToWait("10.0.0.1", 64'500), 60);
    EXPECT_EQ(tokens.secondsToWait("10.0.0.2", 64'500), 0);
    noteAt({100});
    EXPECT_EQ(tokens.secondsToWait("10.0.0.1", 159'900), 1);
    EXPECT_EQ(tokens.secondsToWait("10.0.0.1", 160'000), 0);
    noteAt({161});
    EXPECT_EQ(tokens.secondsToWait("10.0.0.1", 161'000), 0) << "one is few again";
}

TEST(WrongTokensTest, AnOriginIsWhatOneClientHas) {
    EXPECT_EQ(originOf("2001:db8:1:2::1"), originOf("2001:db8:1:2:ffff::9"));
    EXPECT_NE(originOf("2001:db8:1:2::1"), originOf("2001:db8:1:3::1"));
    EXPECT_EQ(originOf("::ffff:10.0.0.1"), originOf("10.0.0.1"));
    EXPECT_NE(originOf("10.0.0.1"), originOf("10.0.0.2"));
    WrongTokens tokens;
    for (int i = 0; i < 100'000; ++i) {  // bounded, and the one that goes on is kept
        tokens.note(
            "10." + std::to_string(i >> 16) + "." + std::to_string(i >> 8 & 255) + "." + std::to_string(i & 255), i);
        if (i % 1000 == 0) {
            tokens.note("2001:db8::1", i);
        }
    }
    EXPECT_GT(tokens.secondsToWait("2001:db8::2", 100'000), 0);
}

}  // namespace
