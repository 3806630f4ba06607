#include "platform/web_api/routing/router.h"

#include "KxTamberWebApi/KxEndpoint.h"
#include "api/endpoints.h"
#include "platform/web_api/http/request_target.h"
#include "tests/support.h"

using namespace KxNTests;
using KxNTamberWebApi::RouteMatch;
using KxNTamberWebApi::Router;
using Outcome = RouteMatch::Outcome;

namespace {

constexpr std::string_view base = "/api/cre/v1.0";

/// The outcome in one text: the operation and its values, or the status.
std::string describe(const RouteMatch& match) {
    switch (match.outcome) {
        case Outcome::options:
            return "204 " + std::string(match.allow);
        case Outcome::badRequest:
            return "400";
        case Outcome::notFound:
            return "404";
        case Outcome::methodNotAllowed:
            return "405 " + std::string(match.allow);
        case Outcome::matched:
            break;
    }
    std::string text = match.endpoint->operationId;
    for (const auto* const* value = match.values() + 1; *value != nullptr; ++value) {  // the first is the version
        const KxSTamberWebApiParameterValue& held = **value;
        text += std::string(" ") + held.name + "=";
        text += held.type == KxNTamberWebApi::TYPE_BOOLEAN ? (held.boolean ? "<true>" : "<false>")
                : held.type == KxNTamberWebApi::TYPE_INT64 ? "<" + std::to_string(held.integer) + ">"
                                                           : "'" + std::string(held.text) + "'";
    }
    return text;
}

class RouterTest : public testing::Test {
protected:
    std::string route(std::string_view method, const std::string& target) {
        router.route(method, target, match);
        return describe(match);
    }

    Router router{KxNCre::ENDPOINTS, base, "/api/cre/{version}"};
    RouteMatch match;
};

TEST_F(RouterTest, GivesTheStatedAnswer) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"GET", "/containers", "listContainers"},
        {"HEAD", "/containers", "listContainers"},
        {"POST", "/containers", "405 GET, HEAD, OPTIONS"},
        {"OPTIONS", "/images", "204 GET, HEAD, POST, OPTIONS"},
        {"BREW", "/images", "405 GET, HEAD, POST, OPTIONS"},
        {"GET", "/c%6fntainers", "listContainers"},
        // an empty segment is an empty name
        {"POST", "/containers//stop", "stopContainer name=''"},
        {"DELETE", "/compose-files/", "deleteComposeFile name=''"},
        {"GET", "/containers/", "405 DELETE, OPTIONS"},
        // a trailing placeholder takes the rest only of what no route matches
        {"DELETE", "/images/localhost/web:1", "removeImage name='localhost/web:1'"},
        {"DELETE", "/images/localhost%2Fweb:1", "removeImage name='localhost/web:1'"},
        {"DELETE", "/images/a//b/", "removeImage name='a//b/'"},
        {"DELETE", "/images/1/2/3/4/5/6/7/8/9/10/11/12/13/14/15/16/17/18",
         "removeImage name='1/2/3/4/5/6/7/8/9/10/11/12/13/14/15/16/17/18'"},
        {"OPTIONS", "/images/localhost/web:1", "204 DELETE, OPTIONS"},
        {"DELETE", "/containers/x/start", "405 POST, OPTIONS"},
        {"DELETE", "/containers/x/started", "deleteContainer name='x/started'"},
        {"DELETE", "/compose-files/web.yml/containers", "composeRemove name='web.yml'"},
        {"DELETE", "/compose-files/web.yml/containers/", "deleteComposeFile name='web.yml/containers/'"},
        // names
        {"DELETE", "/containers/a%20b%25%41", "deleteContainer name='a b%A'"},
        {"DELETE", "/containers/caf%C3%A9%FF", "deleteContainer name='caf\xC3\xA9\xFF'"},
        {"DELETE", "/containers/a+b", "deleteContainer name='a+b'"},
        {"DELETE", "/containers/...", "deleteContainer name='...'"},
        {"POST", "/containers/..", "405 DELETE, OPTIONS"},
        // queries
        {"GET", "/containers?all=true", "listContainers all=<true>"},
        {"GET", "/containers?all=0", "listContainers all=<false>"},
        {"GET", "/containers?&other=%41&all=1&all=rubbish", "listContainers all=<true>"},
        {"GET", "/containers?a%6Cl=%31", "listContainers all=<true>"},
        {"GET", "/containers?name=x", "listContainers"},
        {"POST", "/containers/x/stop?timeout=-9223372036854775808",
         "stopContainer name='x' timeout=<-9223372036854775808>"},
        {"POST", "/containers/x/stop?timeout=007", "stopContainer name='x' timeout=<7>"},
        {"PUT", "/plugins/p/activate?pluginVersion=1.0+b%2B%26?", "activatePlugin name='p' pluginVersion='1.0+b+&?'"},
        {"PUT", "/plugins/p/activate?pluginVersion", "activatePlugin name='p' pluginVersion=''"}};
    for (const auto& [method, target, expected] : rows) {
        EXPECT_EQ(route(method, std::string(base) + target), expected) << target;
    }
}

TEST_F(RouterTest, RefusesWhatIsMalformedOrNowhere) {
    const auto expect = [this](const char* status, const std::string& method,
                               std::initializer_list<const char*> paths) {
        for (const char* path : paths) {
            EXPECT_EQ(route(method, std::string(base) + path), status) << path;
        }
    };
    expect("404", "GET",
           {"", "/", "//containers", "/Containers", "/containers%2F", "/images/localhost/web:1",
            "/containers/../settings", "/certs/certificate/x"});
    expect("400", "DELETE",
           {"/containers/%", "/containers/%4", "/containers/%4g", "/containers/a%00b", "/containers/a%0A",
            "/containers/a%7F", "/containers/a%3Fb", "/containers/a%23b", "/containers/a#b", "/containers/..",
            "/containers/%2e", "/images/a/../b", "/images/a%2F..", "/images/./a"});
    expect("400", "GET",
           {"/containers?all=True", "/containers?all=", "/containers?all", "/containers?all=rubbish&all=1",
            "/containers?other=%zz", "/containers?all=x"});
    EXPECT_EQ(match.detail, "Query parameter 'all' must be true, false, 1 or 0");
    expect("400", "POST",
           {"/containers/x/stop?timeout=9223372036854775808", "/containers/x/stop?timeout=+5",
            "/containers/x/stop?timeout=5s", "/containers/x/stop?timeout=%205", "/containers/x/stop?timeout="});
    expect("400", "PUT", {"/plugins/p/activate?pluginVersion=1%00"});
}

TEST_F(RouterTest, AcceptsTheOtherFormsOfTargets) {
    EXPECT_EQ(route("GET", "HTTP://localhost:8460/api/cre/v1.0/settings?x"), "getSettings");
    EXPECT_EQ(route("OPTIONS", "*"), "204 GET, HEAD, POST, PUT, DELETE, PATCH, OPTIONS");
    EXPECT_EQ(route("GET", "*"), "404");
    for (const char* target :
         {"", "settings", "localhost:8460", "http://", "http:///api", "ftp://h/api", "/a b", "/a\n"}) {
        EXPECT_EQ(route("GET", target), "400") << target;
    }
    EXPECT_EQ(KxNTamberWebApi::splitRequestTarget("http://evil.example?x")->authority, "evil.example");
}

TEST_F(RouterTest, ValuesStayWhereTheyAreWhenTheMatchMovesAndAreGoneAfterIt) {
    route("POST", std::string(base) + "/containers/a-long-name-that-is-stored/stop?timeout=5");
    const auto* const* values = match.values();
    const char* text = values[1]->text;
    RouteMatch moved = std::move(match);
    EXPECT_EQ(moved.values(), values);
    EXPECT_EQ(moved.values()[1]->text, text);
    EXPECT_EQ(moved.name(), "a-long-name-that-is-stored");
    EXPECT_STREQ(moved.values()[0]->name, "version");
    EXPECT_STREQ(moved.values()[0]->text, "v1.0");

    router.route("GET", std::string(base) + "/containers", moved);
    EXPECT_EQ(describe(moved), "listContainers");
    router.route("GET", std::string(base) + "/nothing", moved);
    EXPECT_EQ(moved.endpoint, nullptr);
    EXPECT_EQ(moved.name(), "");
}

TEST(RouterTableTest, RefusesRecordsThatContradict) {
    using namespace KxNTamberWebApi;
    static const KxSTamberWebApiParameter id = {"id", TYPE_TEXT | LOCATION_PATH << 8};
    static const KxSTamberWebApiParameter odd = {"odd", 9 | LOCATION_QUERY << 8};
    const KxSTamberWebApiParameter* const idOnly[] = {&id, nullptr};
    const KxSTamberWebApiParameter* const oddOnly[] = {&odd, nullptr};
    const KxSTamberWebApiEndpoint good{1, "good", METHOD_GET, "/a/{id}", nullptr, idOnly, 0, 0};
    const KxSTamberWebApiEndpoint bad[] = {{3, "same", METHOD_GET, "/a/{id}", nullptr, idOnly, 0, 0},
                                           {4, "unknownMethod", 6, "/b", nullptr, nullptr, 0, 0},
                                           {5, "noSuchPlaceholder", METHOD_GET, "/b", nullptr, idOnly, 0, 0},
                                           {6, "unknownType", METHOD_GET, "/b", nullptr, oddOnly, 0, 0},
                                           {7, "relative", METHOD_GET, "b", nullptr, nullptr, 0, 0}};
    for (const KxSTamberWebApiEndpoint& record : bad) {
        const KxSTamberWebApiEndpoint* const table[] = {&good, &record, nullptr};
        EXPECT_THROW(Router(table, "", ""), std::invalid_argument) << record.operationId;
    }
}

}  // namespace
