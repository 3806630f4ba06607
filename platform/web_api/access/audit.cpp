#include "platform/web_api/access/audit.h"

#include <algorithm>

#include "platform/common/text.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::size_t MAXIMUM_VALUE = 256;

bool isPlain(std::string_view value) {
    return std::all_of(value.begin(), value.end(), [](char c) {
        return KxNCommon::isAlphanumeric(c) || std::string_view("-._:/{}@+%").find(c) != std::string_view::npos;
    });
}

void appendQuoted(std::string& line, std::string_view value) {
    line += '"';
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            line += '\\';
            line += c;
        } else if (KxNCommon::isControl(c) || static_cast<unsigned char>(c) > 0x7e) {
            line += "\\x";
            KxNCommon::appendHex(line, c);
        } else {
            line += c;
        }
    }
    line += '"';
}

void appendField(std::string& line, std::string_view key, std::string_view value) {
    line += ' ';
    line += key;
    line += '=';
    if (value.empty()) {
        line += '-';
    } else if (value.size() > MAXIMUM_VALUE) {
        appendQuoted(line, value.substr(0, MAXIMUM_VALUE));
        line += "...";
    } else if (value == "-" || !isPlain(value)) {
        appendQuoted(line, value);
    } else {
        line += value;
    }
}

}  // namespace

std::string makeAuditLine(const AuditRecord& record) {
    std::string line = "Korvex Container Service: audit:";
    appendField(line, "peer", record.peer);
    appendField(line, "identity", record.identity);
    appendField(line, "role", record.role);
    appendField(line, "method", record.method);
    appendField(line, "route", record.route);
    appendField(line, "name", record.name);
    appendField(line, "status", std::to_string(record.status));
    appendField(line, "ms", std::to_string(record.milliseconds));
    return line;
}

}  // namespace KxNTamberWebApi
