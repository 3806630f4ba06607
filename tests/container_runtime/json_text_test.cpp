#include "platform/json/json_text.h"

#include <stdexcept>

#include "KxJson.h"
#include "tests/support.h"

using namespace KxNJson;
using namespace KxNTests;

TEST(JsonDepth, CountsWhatIsOpenAtOnceAndNothingInStrings) {
    const std::string deep(100, '[');
    const struct {
        std::string text;
        int depth;
    } cases[] = {
        {"", 0},
        {"7", 0},
        {"[]", 1},
        {R"({"a": [{}, [], {"b": 1}]})", 3},
        {"[[],[],[],[]]", 2},
        {deep, 100},
        {R"(["[[[{{{", "]]]"])", 1},
        {R"({"[[": {"{{": []}})", 3},
        {R"(["\"[[", []])", 2},
        {R"(["\\", [], "[["])", 2},  // the backslash is escaped, the quote is not
        {R"(["\u0022[[", []])", 2},
        {R"(["\\\"[[", []])", 2},
        {"[\"" + deep, 1},  // cut off in a string
        {"[\"\\", 1},       // and in an escape
        {"]]" + deep, 98},  // not JSON from the first character on
    };
    for (const auto& [text, depth] : cases) {
        EXPECT_FALSE(nestsDeeperThan(text, depth)) << text;
        EXPECT_TRUE(depth == 0 || nestsDeeperThan(text, depth - 1)) << text;
    }
}

TEST(JsonText, ManyMembersAreRefusedBeforeTheyAreCompared) {
    std::string text = R"({":::":":"})";
    EXPECT_FALSE(hasMoreMembersThan(text, 1));
    EXPECT_TRUE(hasMoreMembersThan(text, 0));
    for (text = "{\"x\":0"; text.size() < 1'000'000;) {
        text += ",\"" + std::to_string(text.size()) + "\":0";
    }
    const auto begin = threadTime();
    EXPECT_THROW(parseJsonText(text + "}", 1), std::invalid_argument);
    EXPECT_LT(threadTime() - begin, 5s);
}

TEST(JsonText, EndsWhereTheTextEnds) {
    EXPECT_EQ(parseJsonText("{}", 1), json::object());
    for (const std::string& text :
         {std::string("{}\0", 3), std::string("\0{}", 3), std::string("{} x"), std::string("[[]]")}) {
        EXPECT_THROW(parseJsonText(text, 1), std::exception) << text;
    }
}
