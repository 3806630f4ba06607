#include "platform/net/tls_files.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "KxLog.h"
#include "platform/net/deadline.h"

namespace KxNNet {

namespace {

constexpr std::int64_t LOOK_EVERY_MILLISECONDS = 1000;

/// Authenticated encryption with forward secrecy only; TLS 1.3 has no other.
constexpr const char* TLS12_CIPHERS = "ECDHE+AESGCM:ECDHE+CHACHA20";

/// Why the last call on OpenSSL failed.
std::string opensslText() {
    const unsigned long number = ERR_peek_last_error();
    if (const char* const reason = ERR_reason_error_string(number)) {
        return reason;
    }
    std::array<char, 256> text;
    ERR_error_string_n(number, text.data(), text.size());
    return text.data();
}

[[noreturn]] void fail(const char* what, const std::string& path, const std::string& why) {
    throw std::runtime_error(std::string(what) + " '" + path + "' cannot be used: " + why);
}

}  // namespace

TlsFiles::TlsFiles(const std::string& directory)
    : certificate(directory + "/server.crt"), key(directory + "/server.key"), authority(directory + "/ca.crt") {
    // The process may end while connections are served; the library must not be taken apart under them.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    loaded = look();
    const bool hasCertificate = loaded[0].exists;
    const bool hasKey = loaded[1].exists;
    const bool hasAuthority = loaded[2].exists;
    if (hasCertificate != hasKey) {
        fail("TLS file", hasCertificate ? certificate : key,
             "'" + (hasCertificate ? key : certificate) + "' is missing");
    }
    if (hasCertificate) {
        current = load(loaded);
        asksClients = hasAuthority;
    } else if (hasAuthority) {
        KxCRTE_LOG(3,
                   "Korvex Container Service: Web API ignores '%s': without a server certificate there is no TLS in "
                   "which clients could show theirs",
                   authority.c_str());
    }
}

TlsFiles::Identities TlsFiles::look() const {
    Identities found;
    const std::array<const std::string*, 3> paths{&certificate, &key, &authority};
    for (std::size_t i = 0; i < paths.size(); ++i) {
        struct stat info;
        if (::stat(paths[i]->c_str(), &info) == 0) {
            found[i] = {true, static_cast<std::int64_t>(info.st_ino), info.st_size, info.st_mtim.tv_sec,
                        info.st_mtim.tv_nsec};
        } else {
            // What is there but cannot be looked at, such as a link into a volume that is not mounted, does not load.
            const bool isAbsent = ::lstat(paths[i]->c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
            found[i].exists = !isAbsent;
        }
    }
    return found;
}

std::shared_ptr<SSL_CTX> TlsFiles::load(const Identities& identities) const {
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (!context) {
        throw std::bad_alloc();
    }
    SSL_CTX* const native = context.get();
    SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
    SSL_CTX_set_cipher_list(native, TLS12_CIPHERS);
    SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE | SSL_OP_NO_COMPRESSION |
                                    SSL_OP_IGNORE_UNEXPECTED_EOF);
    // Streams write whatever the socket takes, from wherever the rest then lies, and idle ones keep no buffers.
    SSL_CTX_set_mode(native,
                     SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_read_ahead(native, 1);
    // Clients come back with tickets, which cost no memory here.
    SSL_CTX_set_session_cache_mode(native, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_default_passwd_cb(native, [](char*, int, int, void*) { return 0; });  // else it asks on the terminal
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(native, certificate.c_str()) != 1) {
        fail("certificate", certificate, opensslText());
    }
    if (SSL_CTX_use_PrivateKey_file(native, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        fail("private key", key, opensslText());
    }
    if (SSL_CTX_check_private_key(native) != 1) {
        fail("private key", key, "it does not belong to '" + certificate + "'");
    }
    if (identities[2].exists || asksClients) {
        loadAuthority(native, identities[2].exists);
    }
    return context;
}

void TlsFiles::loadAuthority(SSL_CTX* context, bool isHere) const {
    if (isHere) {
        if (SSL_CTX_load_verify_file(context, authority.c_str()) != 1) {
            fail("CA certificate", authority, opensslText());
        }
        SSL_CTX_set_client_CA_list(context, SSL_load_client_CA_file(authority.c_str()));
    } else {
        // Deleted while it was in use, which counts at the next start.
        SSL_CTX_set1_cert_store(context, SSL_CTX_get_cert_store(current.get()));
        SSL_CTX_set_client_CA_list(context, SSL_dup_CA_list(SSL_CTX_get_client_CA_list(current.get())));
    }
    constexpr unsigned char sessions[] = "kx";
    SSL_CTX_set_session_id_context(context, sessions, sizeof sessions - 1);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
}

std::shared_ptr<SSL_CTX> TlsFiles::contextForConnection() {
    if (!current) {
        return nullptr;
    }
    std::lock_guard lock(mutex);
    const std::int64_t now = coarseMilliseconds();
    if (now - lookedAt < LOOK_EVERY_MILLISECONDS) {
        return current;
    }
    lookedAt = now;
    const Identities found = look();
    if (found == loaded) {
        return current;
    }
    loaded = found;
    if (!found[0].exists || !found[1].exists) {
        return current;  // deleted, which counts at the next start, or not complete yet
    }
    try {
        current = load(found);
        asksClients = asksClients || found[2].exists;
        KxCRTE_LOG(2, "Korvex Container Service: Web API uses the renewed TLS files");
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API keeps its former TLS files: %s", failure.what());
    }
    return current;
}

}  // namespace KxNNet
