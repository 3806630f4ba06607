#include "platform/json/json_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "KxJson.h"
#include "KxJsonText.h"

namespace KxNJson {

namespace {

/// Makes the value that the parser reads. The library's own way looks through an object for each of its members: a
/// million bytes of short ones would take many seconds.
class Builder {
public:
    Builder(json& into, int depthLimit) : root(into), limit(static_cast<std::size_t>(depthLimit)) {}

    bool null() { return add(nullptr); }
    bool boolean(bool value) { return add(value); }
    bool number_integer(json::number_integer_t value) { return add(value); }
    bool number_unsigned(json::number_unsigned_t value) { return add(value); }
    bool number_float(json::number_float_t value, const std::string&) { return add(value); }
    bool string(std::string& value) { return add(std::move(value)); }
    bool binary(json::binary_t&) { return false; }  // not in a text

    bool start_object(std::size_t) { return open(json::value_t::object); }
    bool start_array(std::size_t) { return open(json::value_t::array); }
    bool key(std::string& value) {
        name = std::move(value);
        return true;
    }
    bool end_object() {
        dropRepeatedNames(*containers.back());
        return end_array();
    }
    bool end_array() {
        containers.pop_back();
        return true;
    }

    template <class Failure>
    bool parse_error(std::size_t, const std::string&, const Failure& failure) {
        throw failure;
    }

private:
    template <class Value>
    bool add(Value&& value) {
        place(std::forward<Value>(value));
        return true;
    }

    bool open(json::value_t type) {
        if (containers.size() == limit) {
            throw std::invalid_argument("it nests more than " + std::to_string(limit) + " levels deep");
        }
        containers.push_back(&place(type));
        return true;
    }

    template <class Value>
    json& place(Value&& value) {
        if (containers.empty()) {
            return root = json(std::forward<Value>(value));
        }
        json& parent = *containers.back();
        if (parent.is_array()) {
            return parent.emplace_back(std::forward<Value>(value));
        }
        auto& members = parent.get_ref<json::object_t&>();
        members.emplace_back(std::move(name), json(std::forward<Value>(value)));
        return members.back().second;
    }

    json& root;
    const std::size_t limit;
    std::vector<json*> containers;  // those around the parser's place
    std::string name;               // of the member whose value comes next
};

/// Whether `text` stands in JSON as it is. It has no way out of the loop, so that the compiler takes many at a time.
bool isPlain(std::string_view text) {
    unsigned others = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        others |= static_cast<unsigned>((byte < 0x20) | (byte > 0x7f) | (byte == '"') | (byte == '\\'));
    }
    return others == 0;
}

std::string writeAsLibrary(const json& value) {
    return value.dump(-1, ' ', false, Utf8ErrorMode::replace);
}

class Writer {
public:
    std::string text;

    void add(const json& value) {
        switch (value.type()) {
            case json::value_t::object:
                addObject(value.get_ref<const json::object_t&>());
                break;
            case json::value_t::array:
                addArray(value.get_ref<const json::array_t&>());
                break;
            case json::value_t::string:
                addString(value.get_ref<const std::string&>());
                break;
            case json::value_t::number_integer:
                addInteger(value.get_ref<const json::number_integer_t&>());
                break;
            case json::value_t::number_unsigned:
                addInteger(value.get_ref<const json::number_unsigned_t&>());
                break;
            default:
                text += writeAsLibrary(value);
        }
    }

private:
    void addObject(const json::object_t& members) {
        text += '{';
        for (const auto& [name, value] : members) {
            addString(name);
            text += ':';
            add(value);
            text += ',';
        }
        close('}');
    }

    void addArray(const json::array_t& elements) {
        text += '[';
        for (const json& element : elements) {
            add(element);
            text += ',';
        }
        close(']');
    }

    void close(char bracket) { text.back() == ',' ? void(text.back() = bracket) : text.push_back(bracket); }

    void addString(const std::string& string) {
        if (!isPlain(string)) {
            text += writeAsLibrary(string);
            return;
        }
        const std::size_t at = text.size();
        text.resize(at + string.size() + 2, '"');
        string.copy(&text[at + 1], string.size());
    }

    template <class Integer>
    void addInteger(Integer number) {
        std::array<char, 24> digits;
        text.append(digits.data(), std::to_chars(digits.begin(), digits.end(), number).ptr);
    }
};

}  // namespace

std::string makeJsonText(const json& value) {
    Writer writer;
    writer.add(value);
    return std::move(writer.text);
}

void dropRepeatedNames(json& object) {
    json::object_t::Container& members = object.get_ref<json::object_t&>();
    std::vector<std::size_t> byName(members.size());
    std::iota(byName.begin(), byName.end(), 0);
    std::sort(byName.begin(), byName.end(), [&](std::size_t left, std::size_t right) {
        const int order = members[left].first.compare(members[right].first);
        return order != 0 ? order < 0 : left < right;
    });
    std::vector<bool> isDropped(members.size());
    bool hasDropped = false;
    for (std::size_t first = 0, next = 1; next < byName.size(); ++next) {
        if (members[byName[first]].first != members[byName[next]].first) {
            first = next;
            continue;
        }
        members[byName[first]].second = std::move(members[byName[next]].second);
        isDropped[byName[next]] = true;
        hasDropped = true;
    }
    if (!hasDropped) {
        return;
    }
    json::object_t::Container kept;
    for (std::size_t at = 0; at < members.size(); ++at) {
        if (!isDropped[at]) {
            kept.emplace_back(members[at].first, std::move(members[at].second));
        }
    }
    members.swap(kept);
}

json parseJsonText(std::string_view text, int limit) {
    if (const std::size_t at = text.find('\0');
        at != std::string_view::npos) {  // the parser would end there, and be content
        throw std::invalid_argument("there is a null byte at position " + std::to_string(at));
    }
    json value;
    Builder builder(value, limit);
    json::sax_parse(text, &builder);
    return value;
}

bool parse(std::string_view text, json& value, std::string& reason) {
    try {
        value = parseJsonText(text, MAXIMUM_DEPTH);
        return true;
    } catch (const json::exception& failure) {
        reason = failure.what();
    } catch (const std::invalid_argument& failure) {
        reason = failure.what();
    }
    return false;
}

}  // namespace KxNJson
