#include "platform/console/metrics/metrics_text.h"

#include "platform/common/utf8_text.h"

namespace KxNConsole {

void MetricsText::begin(std::string_view metric, std::string_view type, std::string_view help) {
    name = metric;
    written.append("# HELP ").append(name).append(" ").append(help).append("\n");
    written.append("# TYPE ").append(name).append(" ").append(type).append("\n");
}

void MetricsText::addText(std::string_view value, std::initializer_list<Label> labels, std::string_view suffix) {
    written.append(name).append(suffix);
    char before = '{';
    for (const Label& label : labels) {
        written += before;
        before = ',';
        written.append(label.name).append("=\"");
        for (const char c : KxNCommon::toUtf8(label.value)) {
            if (c == '\n') {
                written += "\\n";
            } else {
                written.append(c == '\\' || c == '"' ? 1 : 0, '\\') += c;
            }
        }
        written += '"';
    }
    written.append(before == ',' ? "} " : " ").append(value).append("\n");
}

}  // namespace KxNConsole
