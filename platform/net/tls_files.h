// The TLS files of the server, and what becomes of them while it runs.
#pragma once

#include <openssl/types.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace KxNNet {

/// Loads server.crt and server.key, and ca.crt for client certificates, from one directory, and loads them anew when
/// they have changed.
class TlsFiles {
public:
    /// Throws std::runtime_error, which names the file, when one of the pair is missing or a file does not load. A
    /// `ca.crt` alone is logged.
    explicit TlsFiles(const std::string& directory);

    /// Whether connections use TLS, which was decided at the start.
    bool isOn() const { return current != nullptr; }

    /// The context for a new connection, which holds a share of it itself; null for plain TCP. Looks at the files at
    /// most once a second; those that do not load leave the former context in use and are logged once. Any thread.
    std::shared_ptr<SSL_CTX> contextForConnection();

private:
    /// What tells one content of a file from another without reading it.
    struct Identity {
        bool exists = false;
        std::int64_t inode = 0;
        std::int64_t size = 0;
        std::int64_t modifiedSeconds = 0;
        std::int64_t modifiedNanoseconds = 0;
        bool operator==(const Identity&) const = default;
    };
    using Identities = std::array<Identity, 3>;

    Identities look() const;
    std::shared_ptr<SSL_CTX> load(const Identities& identities) const;
    void loadAuthority(SSL_CTX* context, bool isHere) const;

    const std::string certificate;
    const std::string key;
    const std::string authority;

    std::mutex mutex;
    std::shared_ptr<SSL_CTX> current;
    Identities loaded;
    bool asksClients = false;
    std::int64_t lookedAt = 0;
};

}  // namespace KxNNet
