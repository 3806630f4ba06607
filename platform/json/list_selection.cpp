#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "KxJson.h"
#include "KxJsonText.h"
#include "platform/json/json_text.h"

namespace KxNJson {

namespace {

using boost::json::error_code;
using boost::json::string_view;

constexpr std::size_t ELEMENT_DEPTH = 1;  // inside the list
constexpr std::size_t RECORD_DEPTH = 2;   // inside a record, which is inside the list

/// Listens to the parser and keeps the values of wanted keys. Records are many times what is kept of them: a tree of
/// all of it would cost most of the time and of the memory of a long list. The parser is Boost's because it takes a
/// fifth of the time of the other library's.
class Selection {
public:
    static constexpr std::size_t max_object_size = SIZE_MAX;
    static constexpr std::size_t max_array_size = SIZE_MAX;
    static constexpr std::size_t max_key_size = SIZE_MAX;
    static constexpr std::size_t max_string_size = SIZE_MAX;

    Selection(std::span<const char* const> wantedKeys, json& into, std::string& why)
        : keys(wantedKeys.begin(), wantedKeys.end()), selection(into), reason(why), found(wantedKeys.size()) {}

    bool on_document_begin(error_code&) { return true; }
    bool on_document_end(error_code&) { return true; }

    bool on_null(error_code&) { return depth == 0 || takeValue(nullptr); }
    bool on_bool(bool value, error_code&) { return takeValue(value); }
    bool on_int64(std::int64_t value, string_view, error_code&) { return takeValue(value); }
    bool on_uint64(std::uint64_t value, string_view, error_code&) { return takeValue(value); }

    /// Reads the number anew: the parser's own value may differ in the last digit.
    bool on_double(double, string_view text, error_code& error) {
        double value = 0;
        if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) {
            reason = "a number is out of range";
            error = boost::json::error::syntax;  // the parser stops; what it says counts for nothing
            return false;
        }
        return takeValue(value);
    }

    bool on_key(string_view end, std::size_t, error_code&) {
        const std::string_view name = joinParts(end);
        if (depth == RECORD_DEPTH) {
            const auto match = std::find(keys.begin(), keys.end(), name);
            target = match == keys.end() ? nullptr : &found[static_cast<std::size_t>(match - keys.begin())];
        } else if (depth == ELEMENT_DEPTH) {
            recordKey = name;
        } else if (!building.empty()) {
            nestedKey = name;
        }
        parts.clear();
        return true;
    }

    bool on_string(string_view end, std::size_t, error_code&) {
        const bool isTaken = isWanted() ? takeValue(std::string(joinParts(end))) : takeValue(nullptr);
        parts.clear();
        return isTaken;
    }

    // A text with escapes comes in parts.
    bool on_key_part(string_view part, std::size_t, error_code&) { return addPart(part); }
    bool on_string_part(string_view part, std::size_t, error_code&) { return addPart(part); }

    bool on_object_begin(error_code&) { return begin(json::value_t::object); }
    bool on_array_begin(error_code&) { return begin(json::value_t::array); }
    bool on_object_end(std::size_t, error_code&) { return end(); }
    bool on_array_end(std::size_t, error_code&) { return end(); }

    // These do not come: the parser has the whole text, and comments are not allowed.
    bool on_number_part(string_view, error_code&) { return true; }
    bool on_comment_part(string_view, error_code&) { return true; }
    bool on_comment(string_view, error_code&) { return true; }

private:
    bool addPart(string_view part) {
        parts.append(part.data(), part.size());
        return true;
    }

    std::string_view joinParts(string_view end) {
        if (parts.empty()) {
            return {end.data(), end.size()};
        }
        addPart(end);
        return parts;
    }

    bool isWanted() const { return !building.empty() || (depth == RECORD_DEPTH && target != nullptr); }

    template <class Value>
    bool takeValue(Value&& value) {
        if (depth < RECORD_DEPTH) {
            addRecord();  // an element that holds nothing
        } else if (isWanted()) {
            place(std::forward<Value>(value));
        }
        return true;
    }

    bool begin(json::value_t type) {
        if (depth == 0) {
            selection = type;
        } else if (depth == ELEMENT_DEPTH) {
            target = nullptr;  // in an array none is ever wanted
        } else if (isWanted()) {
            building.push_back(&place(type));
        }
        ++depth;
        return true;
    }

    bool end() {
        --depth;
        if (!building.empty()) {
            if (building.back()->is_object()) {
                dropRepeatedNames(*building.back());
            }
            building.pop_back();
        } else if (depth == ELEMENT_DEPTH) {
            addRecord();
        } else if (depth == 0 && selection.is_object()) {
            takeMembersAsList();
        }
        return true;
    }

    /// Puts a wanted value where it belongs and returns it there.
    template <class Value>
    json& place(Value&& value) {
        if (building.empty()) {
            return target->emplace(std::forward<Value>(value));
        }
        json& parent = *building.back();
        return parent.is_array() ? parent.emplace_back(std::forward<Value>(value))
                                 : addMember(parent, nestedKey, json(std::forward<Value>(value)));
    }

    static json& addMember(json& object, std::string& key, json value) {
        auto& members = object.get_ref<json::object_t&>();
        members.emplace_back(std::move(key), std::move(value));
        return members.back().second;
    }

    void addRecord() {
        json::object_t record;
        record.reserve(keys.size());
        for (std::size_t index = 0; index < keys.size(); ++index) {
            if (found[index]) {
                record.emplace_back(keys[index], std::move(*found[index]));
                found[index].reset();
            }
        }
        if (selection.is_object()) {
            addMember(selection, recordKey, std::move(record));
        } else {
            selection.push_back(std::move(record));
        }
    }

    /// The elements of an object are the values of its members.
    void takeMembersAsList() {
        dropRepeatedNames(selection);
        json list = json::array();
        for (auto& member : selection.get_ref<json::object_t&>()) {
            list.push_back(std::move(member.second));
        }
        selection = std::move(list);
    }

    const std::vector<std::string> keys;
    json& selection;
    std::string& reason;
    std::vector<std::optional<json>> found;  // what the current record holds, by key
    std::optional<json>* target = nullptr;   // where the value that comes next in the record goes
    std::vector<json*> building;             // the containers around the parser's place that are being built
    std::string recordKey;                   // of the record, where the records are members of an object
    std::string nestedKey;                   // of the member of what is being built whose value comes next
    std::string parts;                       // of the key or text that is being read
    std::size_t depth = 0;
};

}  // namespace

bool selectKeys(std::string_view list, std::span<const char* const> keys, json& selection, std::string& reason) {
    selection = json::array();
    reason.clear();
    boost::json::parse_options options;
    options.max_depth = MAXIMUM_DEPTH;
    boost::json::basic_parser<Selection> parser(options, keys, selection, reason);
    error_code error;
    const std::size_t read = parser.write_some(false, list.data(), list.size(), error);
    if (!error && read < list.size()) {
        error = boost::json::error::extra_data;
    }
    if (error && reason.empty()) {
        reason = error.message() + " at byte " + std::to_string(read);
    }
    return !error;
}

}  // namespace KxNJson
