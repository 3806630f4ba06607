#include "platform/web_api/audit/audit_chain.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>

#include "KxJson.h"
#include "platform/common/sha256.h"
#include "platform/common/system_text.h"
#include "platform/json/json_text.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::string_view FRONT = "{\"seq\":";
constexpr std::size_t HASH_LENGTH = 64;

std::ifstream openForReading(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw KxNCommon::systemError("'" + path + "' cannot be read");
    }
    return file;
}

/// The seq of the first line; the largest number where it has none.
std::uint64_t firstSeq(const std::string& path) {
    std::ifstream file = openForReading(path);
    std::string line;
    std::getline(file, line);
    return findSeq(line).value_or(UINT64_MAX);
}

/// Goes through the files of one record, in their order.
class Verification {
public:
    /// False once something does not fit.
    bool read(const std::string& path) {
        std::ifstream file = openForReading(path);
        std::string line;
        for (std::uint64_t number = 1; std::getline(file, line); ++number) {
            if (file.eof()) {
                found.notes.push_back("'" + path + "' ends in the middle of a line of " + std::to_string(line.size()) +
                                      " bytes, which is no entry: the service sets it aside when it starts");
                break;
            }
            found.fault = check(line);
            if (!found.fault.empty()) {
                found.fault = path + ":" + std::to_string(number) + ": " + found.fault;
                return false;
            }
        }
        return true;
    }

    AuditVerdict found;

private:
    /// What is wrong with the next line; empty when nothing is.
    std::string check(std::string_view line) {
        const auto place = findPlace(line);
        if (!place) {
            return "this is no entry of an audit record";
        }
        if (found.entries == 0 && place->seq > 1) {
            found.notes.push_back("the files begin with entry " + std::to_string(place->seq) +
                                  ": nothing is said of those before it");
        } else if (place->seq != last.seq + 1) {
            return "entry " + std::to_string(place->seq) + " where " + std::to_string(last.seq + 1) +
                   " was to come: entries were removed or moved";
        } else if (place->previous != last.hash) {
            return "entry " + std::to_string(place->seq) +
                   " does not follow from the one before it: one of the two was changed";
        }
        found.first = found.entries == 0 ? place->seq : found.first;
        found.last = place->seq;
        ++found.entries;
        last = linkOf(line, place->seq);
        return {};
    }

    AuditLink last;
};

}  // namespace

std::optional<std::uint64_t> findSeq(std::string_view line) {
    std::uint64_t seq = 0;
    if (!line.starts_with(FRONT)) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(line.data() + FRONT.size(), line.data() + line.size(), seq);
    return error == std::errc() && end != line.data() + line.size() && *end == ',' ? std::optional(seq) : std::nullopt;
}

std::optional<AuditPlace> findPlace(std::string_view line) {
    const auto seq = findSeq(line);
    if (!seq) {
        return std::nullopt;
    }
    try {
        const KxNJson::json entry = KxNJson::parseJsonText(line, 4);
        AuditPlace place{*seq, entry.at("previous").get<std::string>()};
        const bool isHash = place.previous.size() == HASH_LENGTH &&
                            place.previous.find_first_not_of("0123456789abcdef") == std::string::npos;
        return isHash && entry.at("seq").get<std::uint64_t>() == *seq ? std::optional(std::move(place)) : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

AuditLink linkOf(std::string_view line, std::uint64_t seq) {
    return {seq, KxNCommon::sha256Hex(line)};
}

AuditVerdict verifyAuditFiles(std::vector<std::string> paths) {
    std::stable_sort(paths.begin(), paths.end(),
                     [](const std::string& a, const std::string& b) { return firstSeq(a) < firstSeq(b); });
    Verification verification;
    for (const std::string& path : paths) {
        if (!verification.read(path)) {
            break;
        }
    }
    return verification.found;
}

}  // namespace KxNTamberWebApi
