#include "platform/web_api/access/token_file.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "platform/common/atomic_file.h"
#include "platform/common/system_text.h"
#include "platform/common/text.h"
#include "platform/common/unique_fd.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::size_t MINIMUM_LENGTH = 32;
constexpr std::size_t MAXIMUM_LENGTH = 1024;
constexpr mode_t PRIVATE_MODE = S_IRUSR | S_IWUSR;
constexpr mode_t ACCESS_OF_OTHERS = S_IRWXG | S_IRWXO;

std::string fileLabel(const std::string& path) {
    return "token file '" + path + "'";
}

/// What is wrong with a file of this kind, owner and mode; empty when nothing is.
std::string findFault(const struct stat& file) {
    if (!S_ISREG(file.st_mode)) {
        return "is not a regular file";
    }
    if (file.st_uid != ::geteuid()) {
        return "belongs to user " + std::to_string(file.st_uid) + ", not to user " + std::to_string(::geteuid()) +
               " that the service runs as";
    }
    if ((file.st_mode & ACCESS_OF_OTHERS) != 0) {
        return "can be accessed by group or others; its mode must be 0600";
    }
    return {};
}

bool isToken(std::string_view text) {
    constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~+/=";
    return text.size() >= MINIMUM_LENGTH && text.size() <= MAXIMUM_LENGTH &&
           text.find_first_not_of(allowed) == std::string_view::npos;
}

enum class Loaded { yes, missing, failed };

Loaded loadToken(const std::string& path, std::string& token, std::string& error) {
    const KxNCommon::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        const int number = errno;
        error = fileLabel(path) +
                (number == ELOOP ? " is a symbolic link" : " cannot be opened: " + KxNCommon::systemText(number));
        return number == ENOENT ? Loaded::missing : Loaded::failed;
    }
    struct stat status {};
    const std::string fault =
        ::fstat(file.get(), &status) == 0 ? findFault(status) : "cannot be examined: " + KxNCommon::systemText(errno);
    if (!fault.empty()) {
        error = fileLabel(path) + " " + fault;
        return Loaded::failed;
    }
    std::array<char, MAXIMUM_LENGTH + 3> text;                          // one more than a token and its line end
    const ssize_t size = ::read(file.get(), text.data(), text.size());  // of a regular file, so it comes at once
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

/// Whatever the umask, nobody else may write into them: who can, replaces the token.
bool makeDirectories(const std::filesystem::path& directory) {
    const auto make = [&] { return ::mkdir(directory.c_str(), 0755) == 0 || errno == EEXIST; };
    return make() ||
           (errno == ENOENT && directory.has_parent_path() && makeDirectories(directory.parent_path()) && make());
}

bool makeToken(const std::string& path, std::string& error) {
    std::array<char, 32> random;
    if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        error = "no random bits for " + fileLabel(path) + ": " + KxNCommon::systemText(errno);
        return false;
    }
    std::string text = KxNCommon::toHex({random.data(), random.size()}) + '\n';
    std::string reason;
    const bool isWritten = KxNCommon::replaceFile(path, text, PRIVATE_MODE, reason);
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
        const std::filesystem::path parent = std::filesystem::path(path).parent_path();
        const std::string directory = parent.empty() ? "." : parent.string();
        if (!makeDirectories(directory)) {
            error = "directory of " + fileLabel(path) + " cannot be made: " + KxNCommon::systemText(errno);
            return std::nullopt;
        }
        // Two processes that start at the same time must end up with the same token: the second finds the first's.
        const KxNCommon::UniqueFd lock(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!lock || ::flock(lock.get(), LOCK_EX) != 0) {
            error = "directory of " + fileLabel(path) + " cannot be opened: " + KxNCommon::systemText(errno);
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
