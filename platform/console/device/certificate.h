// The certificate that the server shows.
#pragma once

#include <cstdint>
#include <optional>

namespace KxNConsole {

/// When the validity of the server's certificate ends, in milliseconds since the Unix epoch; none without one that can
/// be read.
std::optional<std::int64_t> findCertificateEnd();

}  // namespace KxNConsole
