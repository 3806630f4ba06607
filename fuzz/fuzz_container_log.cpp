// Whatever a container writes and however it is cut, the same valid text comes out, and not more than three bytes for
// one.

#include "fuzz/require.h"
#include "platform/container_runtime/logs/log_frames.h"

using namespace KxNContainer;

static bool isValid(const std::string& text) {
    KxNCommon::Utf8Text checker;
    std::string checked;
    checker.append(text, checked);
    checker.finish(checked);
    return checked == text;
}

/// The first byte says whether there are frames and into how large pieces the rest is cut.
void fuzz(std::string_view input) {
    if (input.empty()) {
        return;
    }
    const bool isFramed = (byteAt(input, 0) & 1) != 0;
    const std::size_t step = 1 + (byteAt(input, 0) >> 1);
    const std::string_view bytes = input.substr(1);

    std::string whole;
    LogText log(isFramed);
    log.append(bytes, whole);
    log.finish(whole);
    KX_REQUIRE(isValid(whole) && whole.size() <= 3 * bytes.size());

    std::string joined;
    LogText cutLog(isFramed);
    for (std::size_t begin = 0; begin < bytes.size(); begin += step) {
        std::string text;
        cutLog.append(bytes.substr(begin, step), text);
        KX_REQUIRE(isValid(text));
        joined += text;
    }
    cutLog.finish(joined);
    KX_REQUIRE(joined == whole && cutLog.isBroken() == log.isBroken());
}
