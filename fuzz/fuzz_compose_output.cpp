// Whatever the compose tool prints, what is shown of it is text.

#include "KxJson.h"
#include "fuzz/require.h"
#include "platform/container_runtime/compose/compose_output.h"

using namespace KxNContainer;

static bool isText(const std::string& text) {
    KxNJson::json(text).dump();  // throws on invalid UTF-8
    return !hasControl(text, "\n\t");
}

void fuzz(std::string_view input) {
    const std::string output = readableOutput(input);
    KX_REQUIRE(isText(output) && readableOutput(output) == output);
    const std::string words = lastWords(output);
    KX_REQUIRE(isText(words) && words.find('\n') == std::string::npos && words.size() <= 1100);
}
