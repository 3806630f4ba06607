#include "platform/web_api/audit/audit_record.h"

#include <algorithm>

#include "KxJson.h"
#include "platform/common/text.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::size_t MAXIMUM_VALUE = 256;
constexpr std::size_t MAXIMUM_KEPT_VALUE = 1024;

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
    if (record.refusals > 0) {
        appendField(line, "refusals", std::to_string(record.refusals));
    }
    return line;
}

std::string makeAuditEntry(const AuditRecord& record, std::uint64_t seq, std::string_view previous) {
    const auto kept = [](const std::string& value) { return std::string_view(value).substr(0, MAXIMUM_KEPT_VALUE); };
    KxNJson::json entry = {{"seq", seq},
                           {"time", KxNCommon::formatTime(record.time)},
                           {"peer", kept(record.peer)},
                           {"identity", kept(record.identity)},
                           {"role", record.role},
                           {"method", kept(record.method)},
                           {"route", record.route},
                           {"name", kept(record.name)},
                           {"status", record.status},
                           {"milliseconds", record.milliseconds}};
    if (record.refusals > 0) {
        entry["refusals"] = record.refusals;
    }
    entry["previous"] = previous;
    return entry.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace);
}

}  // namespace KxNTamberWebApi
