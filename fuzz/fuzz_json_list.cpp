// Whatever Podman or a client sends: what is read and written of it is what the library would give, faster.
#include <array>

#include "KxJson.h"
#include "KxJsonText.h"
#include "fuzz/require.h"
#include "platform/json/json_text.h"

using KxNJson::json;

constexpr std::array<const char*, 3> KEYS{"Id", "Names", "Labels"};

/// The slow way.
static json selectFrom(const json& list) {
    json selection = json::array();
    for (const json& record : list) {
        json selected = json::object();
        for (const char* key : KEYS) {
            if (record.contains(key)) {
                selected[key] = record.at(key);
            }
        }
        selection.push_back(std::move(selected));
    }
    return selection;
}

static void requireSameText(const json& value) {
    KX_REQUIRE(KxNJson::makeJsonText(value) == value.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace));
}

void fuzz(std::string_view text) {
    requireSameText(std::string(text));
    json selection;
    std::string reason;
    const bool isList = KxNJson::selectKeys(text, KEYS, selection, reason);
    KX_REQUIRE(isList == reason.empty());
    json parsed;
    std::string refusal;
    const bool isParsed = KxNJson::parse(text, parsed, refusal);
    if (text.find('\0') != std::string_view::npos) {
        KX_REQUIRE(!isParsed);  // the library takes it for the end of the text
        return;
    }
    if (refusal.starts_with("it nests")) {
        KX_REQUIRE(!isList);
        return;
    }
    const json expected = json::parse(text, nullptr, false);
    KX_REQUIRE(isParsed == !expected.is_discarded());
    KX_REQUIRE(!isParsed || parsed.dump() == expected.dump());
    requireSameText(parsed);
    if (!isList && (reason.starts_with("a number is out of range") || reason.starts_with("exponent overflow"))) {
        return;  // such as 0e99999999999, in which the full parse sees a 0
    }
    KX_REQUIRE(isList == isParsed);
    KX_REQUIRE(!isList || selection.dump() == selectFrom(expected).dump());
}
