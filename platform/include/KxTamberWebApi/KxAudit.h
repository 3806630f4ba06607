// The audit record that the server keeps: who changed what, and who was refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace KxNTamberWebApi {

/// How the record of the running server fares.
struct KxSAuditState {
    bool isKept = false;     ///< false where the configuration names no file
    std::uint64_t last = 0;  ///< number of the last entry on the disk, 0 for none
    std::uint64_t lost = 0;  ///< entries that could not be written since the start
    std::string problem;     ///< why the last attempt failed, with the system's text; empty when it went well
};

/// Any thread. Without a server that keeps a record all is empty.
KxSAuditState getAuditState();

/// The entries behind number `after`, oldest first and `limit` at most, as JSON text (RFC 8259):
/// {"entries": [...], "last": N}, where N is the number of the last entry on the disk. An entry is an object with seq,
/// time (RFC 3339), peer, identity, role, method, route, name, status, milliseconds, in one that sums refusals up their
/// number as `refusals`, and previous (SHA-256 of the entry before, hexadecimal). Entries that were rotated away are
/// left out. May wait for the disk. Any thread. Throws std::runtime_error when the record cannot be read.
std::string readAuditEntries(std::uint64_t after, std::size_t limit);

}  // namespace KxNTamberWebApi
