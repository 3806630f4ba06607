#include "platform/web_api/access/token_file.h"

#include <openssl/crypto.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/common/atomic_file.h"
#include "platform/common/private_file.h"
#include "platform/common/system_text.h"
#include "platform/common/text.h"
#include "platform/common/unique_fd.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::size_t MINIMUM_LENGTH = 32;
constexpr std::size_t MAXIMUM_LENGTH = 1024;

std::string fileLabel(const std::string& path) {
    return "token file '" + path + "'";
}

bool isToken(std::string_view text) {
    constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=";
    return text.size() >= MINIMUM_LENGTH && text.size() <= MAXIMUM_LENGTH &&
           text.find_first_not_of(allowed) == std::string_view::npos;
}

enum class Loaded { yes, missing, failed };

Loaded loadToken(const std::string& path, std::string& token, std::string& error) {
    bool isMissing = false;
    std::string fault;
    const auto file = KxNCommon::openPrivateFile(path, isMissing, fault);
    if (!file) {
        error = fileLabel(path) + " " + fault;
        return isMissing ? Loaded::missing : Loaded::failed;
    }
    std::array<char, MAXIMUM_LENGTH + 3> text;  // one more than a token and its line end
    const ssize_t size =
        ::read(file->descriptor.get(), text.data(), text.size());  // of a regular file, so it comes at once
    if (size < 0) {
        error = fileLabel(path) + " cannot be read: " + KxNCommon::systemText(errno);
        return Loaded::failed;
    }
    std::string_view line(text.data(), static_cast<std::size_t>(size));
    for (const char end : {'\n', '\r'}) {
        if (!line.empty() && line.back() == end) {
            line.remove_suffix(1);
        }
    }
    token = isToken(line) ? line : std::string_view();
    OPENSSL_cleanse(text.data(), text.size());
    if (token.empty()) {
        error = fileLabel(path) + " does not hold one line of " + std::to_string(MINIMUM_LENGTH) + " to " +
                std::to_string(MAXIMUM_LENGTH) + " letters, digits or -._~+/=";
        return Loaded::failed;
    }
    return Loaded::yes;
}

bool makeToken(const std::string& path, std::string& error) {
    std::array<char, 32> random;
    if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        error = "no random bits for " + fileLabel(path) + ": " + KxNCommon::systemText(errno);
        return false;
    }
    std::string text = KxNCommon::toHex({random.data(), random.size()}) + '\n';
    std::string reason;
    const bool isWritten = KxNCommon::replaceFile(path, text, KxNCommon::PRIVATE_MODE, reason);
    OPENSSL_cleanse(random.data(), random.size());
    OPENSSL_cleanse(text.data(), text.size());
    error = isWritten ? std::string() : fileLabel(path) + " cannot be made: " + reason;
    return isWritten;
}

}  // namespace

std::optional<std::string> loadOrCreateToken(const std::string& path, std::string& error) {
    std::string token;
    Loaded loaded = loadToken(path, token, error);
    if (loaded == Loaded::missing) {
        KxNCommon::UniqueFd lock;
        try {
            // Two processes that start at the same time must end up with the same token: the second finds the first's.
            lock = KxNCommon::lockDirectory(KxNCommon::makeDirectoryOf(path));
        } catch (const std::system_error& failure) {
            error = fileLabel(path) + " cannot be made: " + failure.what();
            return std::nullopt;
        }
        loaded = loadToken(path, token, error);
        if (loaded == Loaded::missing && makeToken(path, error)) {
            loaded = loadToken(path, token, error);
        }
    }
    return loaded == Loaded::yes ? std::optional(std::move(token)) : std::nullopt;
}

bool TokenVerifier::matches(std::string_view offered) const {
    return offered.size() == expected.size() && CRYPTO_memcmp(offered.data(), expected.data(), expected.size()) == 0;
}

}  // namespace KxNTamberWebApi
