#include "platform/web_api/access/audit.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::size_t MAXIMUM_VALUE = 256;

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-._:/{}@+%").find(c) != std::string_view::npos;
}

bool isPlain(std::string_view value) {
    for (const char c : value) {
        if (!isPlain(c)) {
            return false;
        }
    }
    return true;
}

void appendQuoted(std::string& line, std::string_view value) {
    constexpr std::string_view digits = "0123456789abcdef";
    line += '"';
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            line += '\\';
            line += c;
        } else if (byte < 0x20 || byte > 0x7e) {
            line += "\\x";
            line += digits[byte >> 4];
            line += digits[byte & 15];
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
    appendField(line, "method", record.method);
    appendField(line, "route", record.route);
    appendField(line, "name", record.name);
    appendField(line, "status", std::to_string(record.status));
    appendField(line, "ms", std::to_string(record.milliseconds));
    return line;
}

}  // namespace KxNTamberWebApi
