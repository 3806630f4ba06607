// The chain that the lines of the kept record are: each holds the SHA-256 of the one before it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KxNTamberWebApi {

/// A line of the record as those behind it see it.
struct AuditLink {
    std::uint64_t seq = 0;
    std::string hash = std::string(64, '0');  ///< of the whole line without its newline; before the first, zeros
};

/// What a line of the record says of its place.
struct AuditPlace {
    std::uint64_t seq;
    std::string previous;
};

/// Null for what is no line of a record.
std::optional<AuditPlace> findPlace(std::string_view line);

/// The seq alone, read off the front of a line; null where there is none.
std::optional<std::uint64_t> findSeq(std::string_view line);

/// The line as a link of the chain.
AuditLink linkOf(std::string_view line, std::uint64_t seq);

/// What a verification found.
struct AuditVerdict {
    std::uint64_t entries = 0;
    std::uint64_t first = 0;         ///< seq; 0 when there is no entry
    std::uint64_t last = 0;          ///< seq
    std::string fault;               ///< names file and line of the first one that does not fit; empty when all do
    std::vector<std::string> notes;  ///< what is no fault and worth knowing
};

/// Verifies the chain through the files of one record, in whatever order they are named. Throws std::runtime_error when
/// one cannot be read.
AuditVerdict verifyAuditFiles(std::vector<std::string> paths);

}  // namespace KxNTamberWebApi
