// The file that holds the bearer token, and the comparison with what a client offers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace KxNTamberWebApi {

/// Reads the token in the file `path`. When there is no such file, makes one first: 256 random bits, readable by its
/// owner only, complete or not there at all after a power cut; its directory too where that is missing.
/// Null when the file cannot be read or made, when it is not a regular file of this process's user, when group or
/// others have any access to it, or when it holds no token of 32 to 1024 characters that RFC 6750 allows.
/// `error` then says what is wrong with which file. It never holds the token.
std::optional<std::string> loadOrCreateToken(const std::string& path, std::string& error);

/// Knows the token. Any number of threads may compare at once.
class TokenVerifier {
public:
    explicit TokenVerifier(std::string token) : expected(std::move(token)) {}

    /// True when `offered` is the token. The time it takes tells nothing of the token but its length, which is no
    /// secret: all that the service makes have the same.
    bool matches(std::string_view offered) const;

private:
    std::string expected;
};

}  // namespace KxNTamberWebApi
