

#include "platform/common/utf8_text.h"
#include "platform/container_runtime/logs/log_frames.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;

namespace {

std::string frame(char stream, const std::string& payload) {
    const std::size_t size = payload.size();
    const auto byte = [&](int shift) { return static_cast<char>(size >> shift & 0xFF); };
    return std::string{stream, 0, 0, 0, byte(24), byte(16), byte(8), byte(0)} + payload;
}

/// The texts that come out when `bytes` come in as these pieces, each checked to be whole characters by itself.
std::string pass(bool isFramed, const std::vector<std::string>& pieces) {
    LogText log(isFramed);
    std::string all;
    for (const std::string& piece : pieces) {
        std::string text;
        log.append(piece, text);
        EXPECT_EQ(KxNCommon::toUtf8(text), text) << "a text that is not valid by itself";
        all += text;
    }
    log.finish(all);
    return all;
}

void expectTheSameHoweverCut(bool isFramed, const std::string& bytes, const std::string& expected) {
    EXPECT_EQ(pass(isFramed, {bytes}), expected);
    for (std::size_t first = 0; first <= bytes.size(); ++first) {
        for (std::size_t second = first; second <= bytes.size(); ++second) {
            ASSERT_EQ(
                pass(isFramed, {bytes.substr(0, first), bytes.substr(first, second - first), bytes.substr(second)}),
                expected)
                << "cut at " << first << " and " << second;
        }
    }
    std::vector<std::string> single;
    for (const char c : bytes) {
        single.emplace_back(1, c);
    }
    EXPECT_EQ(pass(isFramed, single), expected);
}

}  // namespace

TEST(Utf8Text, ReplacesEachMaximalSubpartHoweverTheBytesAreCut) {
    const std::string mark = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {"plain ASCII, longer than eight", "plain ASCII, longer than eight"},
        {"\0nul\x7F"s, "\0nul\x7F"s},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\x80z", "a" + mark + "z"},
        {"\xC0\xAF", mark + mark},                        // overlong
        {"\xE0\x80\xAF", mark + mark + mark},             // overlong
        {"\xF0\x8F\xBF\xBF", mark + mark + mark + mark},  // overlong
        {"\xED\xA0\x80", mark + mark + mark},             // surrogate
        {"\xF4\x90\x80\x80", mark + mark + mark + mark},  // beyond Unicode
        {"\xF5\xFF", mark + mark},
        {"\xE2\x82x", mark + "x"},  // a beginning is one part
        {"\xF0\x9F\x98\xF0\x9F\x98\x80", mark + "\xF0\x9F\x98\x80"},
        {"\xE2\x82", mark},  // the end comes too early
        {"ok\xF0\x9F\x98", "ok" + mark},
        {"\xEF\xBF\xBE\xEE\x80\x80", "\xEF\xBF\xBE\xEE\x80\x80"},
    };
    for (const auto& [bytes, text] : cases) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        expectTheSameHoweverCut(false, bytes, text);
    }
}

TEST(LogFrames, AreTakenApartHoweverTheBytesAreCut) {
    expectTheSameHoweverCut(true, frame(1, "out\n") + frame(2, "err\n") + frame(1, "") + frame(1, "end"),
                            "out\nerr\nend");
    // A character of one stream stays together across frames of the other.
    expectTheSameHoweverCut(true, frame(1, "\xE2\x82") + frame(2, "\xC3") + frame(1, "\xAC|") + frame(2, "\xA9|"),
                            "\xE2\x82\xAC|\xC3\xA9|");
    // What is no frame is passed on.
    expectTheSameHoweverCut(true, frame(2, "e") + "this container has no frames at all",
                            "ethis container has no frames at all");
    expectTheSameHoweverCut(true, "no frame\xE2\x82\xAC", "no frame\xE2\x82\xAC");
    expectTheSameHoweverCut(true, "noframe\xE2\x82\xAC", "noframe\xE2\x82\xAC");
    expectTheSameHoweverCut(false, frame(1, "a terminal"), frame(1, "a terminal"));
}

TEST(LogFrames, NeedNothingForTheLengthThatAFrameAnnounces) {
    LogText log(true);
    std::string text;
    log.append("\x01\0\0\0\xFF\xFF\xFF\xFF"s + "payload", text);
    EXPECT_EQ(text, "payload");
    EXPECT_LT(text.capacity(), 100U);
}
