#include "platform/custom_config/config_file.h"

#include <algorithm>

#include "platform/common/atomic_file.h"
#include "platform/common/text.h"
#include "platform/custom_config/config_schema.h"

namespace KxNConfigFile {

namespace {

constexpr std::size_t MAX_FILE_BYTES = 1024 * 1024;
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

std::string_view trim(std::string_view text) {
    return KxNCommon::trim(text, " \t\r\v\f");
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

class Parser {
public:
    explicit Parser(const std::string& name) : fileName(name) {}

    void parseLine(std::string_view line) {
        ++lineNumber;
        line = trim(line);
        if (line.empty() || line.front() == '#' || line.front() == ';') {
            return;
        }
        if (KxNCommon::holdsControl(line, "\t")) {
            report("the line " + quoted(line) + " holds a control character");
        } else if (line.front() == '[') {
            parseSection(line);
        } else {
            parseKey(line);
        }
    }

    Config takeConfig() { return std::move(config); }

private:
    void parseSection(std::string_view line) {
        section.clear();
        isSectionKnown = false;
        if (line.back() != ']') {
            report("the section " + quoted(line) + " has no closing bracket");
            return;
        }
        const std::string_view name = trim(line.substr(1, line.size() - 2));
        if (!KxNConfigSchema::isKnownSection(name)) {
            report("unknown section [" + std::string(name) + "]");
            return;
        }
        section = name;
        isSectionKnown = true;
    }

    void parseKey(std::string_view line) {
        const std::size_t equals = line.find('=');
        const std::string name(trim(line.substr(0, equals)));
        if (equals == std::string_view::npos || name.empty()) {
            report(quoted(line) + " is neither \"[section]\" nor \"key = value\"");
            return;
        }
        if (!isSectionKnown) {
            report("the key " + name + " stands in no known section");
            return;
        }
        const KxNConfigSchema::Key* const key = KxNConfigSchema::findKey(section, name);
        if (key == nullptr) {
            report("unknown key " + name + " in section [" + section + "]");
            return;
        }
        const std::string_view value = trim(line.substr(equals + 1));
        if (!config.values.try_emplace({section, name}, value).second) {
            report("the key " + name + " in section [" + section + "] is given a second time");
            return;
        }
        if (!KxNConfigSchema::isValid(*key, value)) {
            report("the key " + name + " in section [" + section + "] has the bad value " + quoted(value) +
                       ", it must be " + KxNConfigSchema::describeValues(*key),
                   !key->isOptionalFeature);
        }
    }

    void report(const std::string& what, bool isBlocking = true) {
        config.problems.push_back({section, fileName + ":" + std::to_string(lineNumber) + ": " + what, isBlocking});
    }

    const std::string& fileName;
    unsigned lineNumber = 0;
    std::string section;  // empty before the first one and in an unknown one
    bool isSectionKnown = false;
    Config config;
};

}  // namespace

Config parse(std::string_view text, const std::string& fileName) {
    if (text.starts_with(BYTE_ORDER_MARK)) {
        text.remove_prefix(BYTE_ORDER_MARK.size());
    }
    Parser parser(fileName);
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        parser.parseLine(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parser.takeConfig();
}

Config read(const std::string& path) {
    std::string text;
    std::string error;
    using KxNCommon::ReadResult;
    const ReadResult result = KxNCommon::readSmallFile(path, MAX_FILE_BYTES, text, error);
    if (result == ReadResult::Failed || result == ReadResult::TooLarge) {
        Config config;
        config.problems.push_back({"", error, true});
        return config;
    }
    return parse(text, path);
}

}  // namespace KxNConfigFile
