// The TLS files of the server, and what becomes of them while it runs.
#pragma once

#include <openssl/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace KxNNet {

/// Loads server.crt and server.key, and ca.crt for client certificates, from one directory, and loads them anew when
/// they have changed: the pair for itself and the authority for itself, on a thread of its own, so that no connection
/// waits for a file. A file that asks for a password does not load; nobody is asked.
class TlsFiles {
public:
    /// Throws std::runtime_error, which names the file, when one of the pair is missing or a file does not load. A
    /// `ca.crt` alone is logged.
    explicit TlsFiles(const std::string& directory);
    ~TlsFiles();
    TlsFiles(const TlsFiles&) = delete;
    TlsFiles& operator=(const TlsFiles&) = delete;

    /// Whether connections use TLS, which was decided at the start.
    bool isOn() const { return isPairLoaded; }

    /// From now on looks at the files once a second, where TLS is on. Those that do not load leave the former in use
    /// and are logged once; deleted ones stay in use. Throws std::system_error when there is no thread.
    void follow();

    /// The context for a new connection, which holds a share of it itself; null for plain TCP. Any thread.
    std::shared_ptr<SSL_CTX> contextForConnection() const;

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
    struct Identities {
        Identity certificate, key, authority;
    };

    Identities look() const;
    void loadPair();
    void loadAuthority();
    void build();
    void run();
    void lookAgain();
    void warnOfTheEnd();

    const std::string certificate;
    const std::string key;
    const std::string authority;
    bool isPairLoaded = false;

    // The constructor's, then the thread's own.
    Identities seen;
    std::shared_ptr<SSL_CTX> pair;                      // holds nothing but the certificates and the key
    std::shared_ptr<X509_STORE> authorities;            // null without client certificates
    std::chrono::steady_clock::time_point nextWarning;  // of a certificate that ends soon

    mutable std::mutex mutex;
    std::shared_ptr<SSL_CTX> current;
    std::condition_variable wake;
    bool isEnding = false;
    std::thread thread;
};

}  // namespace KxNNet
