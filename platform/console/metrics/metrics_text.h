// The text format of Prometheus, version 0.0.4.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace KxNConsole {

class MetricsText {
public:
    struct Label {
        std::string_view name;
        std::string_view value;
    };

    /// Begins the samples of one metric. `type` is counter, gauge or histogram.
    void begin(std::string_view name, std::string_view type, std::string_view help);

    /// One sample of the metric; `suffix` is one of those of a histogram's samples.
    template <typename Number>
    requires std::integral<Number> || std::floating_point<Number>
    void add(Number value, std::initializer_list<Label> labels = {}, std::string_view suffix = {}) {
        std::array<char, 32> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
        addText({digits.data(), static_cast<std::size_t>(end - digits.data())}, labels, suffix);
    }

    std::string_view text() const { return written; }

private:
    void addText(std::string_view value, std::initializer_list<Label> labels, std::string_view suffix);

    std::string written;
    std::string name;
};

}  // namespace KxNConsole
