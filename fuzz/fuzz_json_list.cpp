// Whatever Podman sends as a list: the selection is what a full parse would give.
#include <array>

#include "KxJson.h"
#include "KxJsonText.h"
#include "fuzz/require.h"
#include "platform/json/json_text.h"

using KxNJson::json;

namespace {

constexpr std::array<const char*, 3> KEYS{"Id", "Names", "Labels"};

/// The slow way. False when the text is not a list of objects.
bool selectByFullParse(std::string_view text, json& selection) {
    const json list = json::parse(text, nullptr, false);
    selection = json::array();
    if (!list.is_array() || !std::all_of(list.begin(), list.end(), [](const json& each) { return each.is_object(); })) {
        return list.is_null();
    }
    for (const json& record : list) {
        json selected = json::object();
        for (const char* key : KEYS) {
            if (record.contains(key)) {
                selected[key] = record.at(key);
            }
        }
        selection.push_back(std::move(selected));
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    json selection;
    std::string reason;
    const bool isList = KxNJson::selectKeys(text, KEYS, selection, reason);
    KX_REQUIRE(isList == reason.empty());
    json expected;
    if (text.find('\0') != std::string_view::npos) {
        return 0;  // which the full parse takes for the end of the text
    }
    if (!isList && (reason.starts_with("a number is out of range") || reason.starts_with("exponent overflow"))) {
        return 0;  // such as 0e99999999999, in which the full parse sees a 0
    }
    if (KxNJson::nestsDeeperThan(text, KxNJson::MAXIMUM_DEPTH)) {
        KX_REQUIRE(!isList || !json::accept(text));
    } else {
        KX_REQUIRE(isList == selectByFullParse(text, expected));
        KX_REQUIRE(!isList || selection.dump() == expected.dump());
    }
    return 0;
}
