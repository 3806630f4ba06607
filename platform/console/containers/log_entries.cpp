#include "platform/console/containers/log_entries.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <memory>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/console/containers/containers.h"
#include "platform/console/parts.h"
#include "platform/console/time_text.h"

namespace KxNConsole {

using KxNContainer::KxCContainer;
using KxNContainer::KxSLogBegin;
using KxNContainer::KxSLogEntry;
using KxNJson::json;
using KxNTamberWebApi::KxCWebSocket;

namespace {

/// `text`, which is valid UTF-8, as a JSON string.
void appendString(std::string& message, std::string_view text) {
    message += '"';
    for (const char c : text) {
        switch (c) {
            case '"':
                message += "\\\"";
                break;
            case '\\':
                message += "\\\\";
                break;
            case '\n':
                message += "\\n";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    std::array<char, 8> escape;
                    std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
                    message += escape.data();
                } else {
                    message += c;
                }
        }
    }
    message += '"';
}

/// Sends what the library gives as messages.
class EntrySink final : public KxNContainer::KxCLogEntrySink {
public:
    EntrySink(const StreamCall& streamCall, KxCWebSocket& client) : call(streamCall), socket(client) {}

    bool takeEntries(const std::vector<KxSLogEntry>& entries, const std::string& cursor) override {
        message = R"({"entries":[)";
        for (const KxSLogEntry& entry : entries) {
            message += message.back() == '[' ? R"({"time":")" : R"(,{"time":")";
            message += nanosecondText(entry.time);
            message += entry.isError ? R"(","stream":"err","text":)" : R"(","stream":"out","text":)";
            appendString(message, entry.text);
            message += '}';
        }
        message += R"(],"cursor":)";
        appendString(message, cursor);
        message += '}';
        return send();
    }

    bool takeGap(const std::optional<std::uint64_t>& bytes, const std::string& reason,
                 const std::string& cursor) override {
        call.parts.requests.countGap();
        return send({{"gap", {{"bytes", bytes ? json(*bytes) : json()}, {"reason", reason}}}, {"cursor", cursor}});
    }

    bool takeState(State state, std::int32_t exitCode) override {
        static constexpr std::array NAMES = {"running", "exited", "removed"};
        return send({{"state", NAMES.at(state)}, {"exitCode", state == EXITED ? json(exitCode) : json()}});
    }

private:
    bool send(const json& document) {
        message = document.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace);
        return send();
    }

    /// Waits while the client does not read.
    bool send() { return socket.sendText(call.pool, message.data(), message.size(), -1, false); }

    const StreamCall& call;
    KxCWebSocket& socket;
    std::string message;
};

/// The number of lines that `tail` asks for; none for all. False when it asks for nothing of the kind.
bool readTail(const char* tail, std::optional<std::uint64_t>& lines) {
    const std::string_view text = tail != nullptr ? tail : "all";
    if (text == "all") {
        return true;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), lines.emplace());
    return error == std::errc() && end == text.data() + text.size();
}

KxSLogBegin readBegin(const Parameters& parameters) {
    KxSLogBegin begin;
    readTail(parameters.text("tail"), begin.tail);
    if (const std::int64_t* since = parameters.number("since")) {
        begin.since = *since;
    }
    if (const char* cursor = parameters.text("cursor")) {
        begin.cursor = cursor;
    }
    return begin;
}

}  // namespace

void openLogEntries(const Call& call) {
    const char* const cursor = call.text("cursor");
    std::optional<std::uint64_t> lines;
    if (cursor != nullptr && *cursor != '\0' && !KxCContainer::IsLogCursor(cursor)) {
        call.badRequest("Query parameter 'cursor' is no cursor");
    } else if (!readTail(call.text("tail"), lines)) {
        call.badRequest("Query parameter 'tail' must be a number of lines or all");
    } else if (json inspection; inspect(call, inspection)) {
        call.response.switchWebSocket(call.pool, call.name(), nullptr, nullptr, 0, &KxCContainer::LogStreamCloseHandler,
                                      nullptr, 0);
        call.response.setSubprotocol("kx.entries.v1");
    }
}

void followLogEntries(const StreamCall& call) {
    const std::unique_ptr<KxCWebSocket> socket(call.socket);
    auto session = call.container.RegisterLogStreamSession(socket.get(), call.name());
    EntrySink sink(call, *socket);
    const auto reply = call.container.FollowLogEntries(call.name(), readBegin(call), sink, std::move(session));
    call.container.UnregisterLogStreamSession(socket.get());
    if (reply.status != 200) {
        KxCRTE_LOG(4, "Korvex Container Service: The log of container '%s' cannot be followed: %s", call.name(),
                   reply.body.c_str());
    }
}

}  // namespace KxNConsole
