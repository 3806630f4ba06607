#include "platform/json/json_text.h"

#include <stdexcept>

#include "KxJson.h"
#include "KxJsonText.h"
#include "tests/support.h"

using namespace KxNJson;
using namespace KxNTests;

TEST(JsonText, NestsNoDeeperThanItsLimit) {
    const std::tuple<std::string, int> cases[] = {
        {"[]", 1}, {R"({"a": [{}, [], {"b": 1}]})", 3}, {"[[],[],[],[]]", 2}, {R"({"[[": {"{{": ["\"[["]}})", 3}};
    for (const auto& [text, depth] : cases) {
        EXPECT_EQ(parseJsonText(text, depth), json::parse(text));
        EXPECT_THROW(parseJsonText(text, depth - 1), std::invalid_argument) << text;
    }
    EXPECT_THROW(parseJsonText(std::string(1'000'000, '['), 64), std::invalid_argument);
}

TEST(JsonText, TakesTimeByItsLengthAndNotByTheNumberOfMembers) {
    std::string members = "{\"x\":0";
    while (members.size() < 1'000'000) {
        members += ",\"" + std::to_string(members.size()) + "\":0";
    }
    members += "}";
    json object;
    json selection;
    std::string reason;
    const char* const keys[] = {"Labels"};
    const auto begin = threadTime();
    EXPECT_TRUE(parse(members, object, reason)) << reason;
    EXPECT_TRUE(selectKeys("[{\"Labels\":" + members + "}]", keys, selection, reason)) << reason;
    EXPECT_LT(threadTime() - begin, 5s);
    EXPECT_GT(object.size(), 80'000U);
    EXPECT_TRUE(selection[0]["Labels"] == object);
}

TEST(JsonText, OfMembersWithOneNameTheLastCountsInThePlaceOfTheFirst) {
    const std::string text = R"({"b":1,"a":{"x":1,"x":[2]},"b":2,"c":3,"a":4,"b":{"y":1,"z":2,"y":3}})";
    EXPECT_EQ(parseJsonText(text, 3).dump(), R"({"b":{"y":3,"z":2},"a":4,"c":3})");
}

TEST(JsonText, EndsWhereTheTextEnds) {
    EXPECT_EQ(parseJsonText("{}", 1), json::object());
    for (const std::string& text :
         {std::string("{}\0", 3), std::string("\0{}", 3), std::string("{} x"), std::string("[[]]")}) {
        EXPECT_THROW(parseJsonText(text, 1), std::exception) << text;
    }
}

TEST(JsonText, IsWrittenAsTheLibraryWouldWriteItWhereAStringIsNotUtf8) {
    const json notUtf8 = {{"\xff", {"a\xc3", "\xed\xa0\x80", std::string("\0\x80", 2)}}};
    EXPECT_EQ(makeJsonText(notUtf8), notUtf8.dump(-1, ' ', false, Utf8ErrorMode::replace));
}
