#include "platform/net/tls_files.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <pthread.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <utility>

#include "KxLog.h"

namespace KxNNet {

namespace {

constexpr std::chrono::seconds LOOK_EVERY{1};

constexpr int WARNING_DAYS = 30;
constexpr std::chrono::hours WARN_EVERY{24};

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

/// The system calls this instead of asking on the terminal: no password, and not an empty one either.
int refusePassword(char*, int, int, void*) {
    return -1;
}

/// A pipe, say, might be waited for without end.
void requireRegularFile(const char* what, const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
        fail(what, path, "it is no regular file");
    }
}

std::shared_ptr<SSL_CTX> makeContext() {
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (!context) {
        throw std::bad_alloc();
    }
    SSL_CTX_set_default_passwd_cb(context.get(), refusePassword);
    return context;
}

/// The names of the authorities, which clients are told.
STACK_OF(X509_NAME) * namesIn(X509_STORE* store) {
    STACK_OF(X509_NAME)* const names = sk_X509_NAME_new_null();
    const STACK_OF(X509_OBJECT)* const objects = X509_STORE_get0_objects(store);
    for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
        if (X509* const one = X509_OBJECT_get0_X509(sk_X509_OBJECT_value(objects, i))) {
            sk_X509_NAME_push(names, X509_NAME_dup(X509_get_subject_name(one)));
        }
    }
    return names;
}

}  // namespace

TlsFiles::TlsFiles(const std::string& directory)
    : certificate(directory + "/server.crt"), key(directory + "/server.key"), authority(directory + "/ca.crt") {
    // The process may end while connections are served; the library must not be taken apart under them.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    seen = look();
    if (seen.certificate.exists != seen.key.exists) {
        fail("TLS file", seen.certificate.exists ? certificate : key,
             "'" + (seen.certificate.exists ? key : certificate) + "' is missing");
    }
    if (seen.certificate.exists) {
        loadPair();
        if (seen.authority.exists) {
            loadAuthority();
        }
        build();
        isPairLoaded = true;
        warnOfTheEnd();
    } else if (seen.authority.exists) {
        KxCRTE_LOG(3,
                   "Korvex Container Service: Web API ignores '%s': without a server certificate there is no TLS in "
                   "which clients could show theirs",
                   authority.c_str());
    }
}

TlsFiles::~TlsFiles() {
    {
        std::lock_guard lock(mutex);
        isEnding = true;
        wake.notify_all();
    }
    if (thread.joinable()) {
        thread.join();
    }
}

void TlsFiles::follow() {
    if (isOn() && !thread.joinable()) {
        thread = std::thread([this] { run(); });
        pthread_setname_np(thread.native_handle(), "kx-web-tls");
    }
}

std::shared_ptr<SSL_CTX> TlsFiles::contextForConnection() const {
    std::lock_guard lock(mutex);
    return current;
}

TlsFiles::Identities TlsFiles::look() const {
    const auto identify = [](const std::string& path) -> Identity {
        struct stat info;
        if (::stat(path.c_str(), &info) == 0) {
            return {true, static_cast<std::int64_t>(info.st_ino), info.st_size, info.st_mtim.tv_sec,
                    info.st_mtim.tv_nsec};
        }
        // What is there but cannot be looked at, such as a link into a volume that is not mounted, does not load.
        const bool isAbsent = ::lstat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
        return {!isAbsent, 0, 0, 0, 0};
    };
    return {identify(certificate), identify(key), identify(authority)};
}

void TlsFiles::loadPair() {
    requireRegularFile("certificate", certificate);
    requireRegularFile("private key", key);
    const auto loaded = makeContext();
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(loaded.get(), certificate.c_str()) != 1) {
        fail("certificate", certificate, opensslText());
    }
    if (SSL_CTX_use_PrivateKey_file(loaded.get(), key.c_str(), SSL_FILETYPE_PEM) != 1) {
        fail("private key", key, opensslText());
    }
    if (SSL_CTX_check_private_key(loaded.get()) != 1) {
        fail("private key", key, "it does not belong to '" + certificate + "'");
    }
    pair = loaded;
}

void TlsFiles::loadAuthority() {
    requireRegularFile("CA certificate", authority);
    const std::shared_ptr<X509_STORE> loaded(X509_STORE_new(), &X509_STORE_free);
    if (!loaded) {
        throw std::bad_alloc();
    }
    ERR_clear_error();
    if (X509_STORE_load_file(loaded.get(), authority.c_str()) != 1) {
        fail("CA certificate", authority, opensslText());
    }
    // It may be one that another authority has signed, of whom nothing is here.
    X509_STORE_set_flags(loaded.get(), X509_V_FLAG_PARTIAL_CHAIN);
    authorities = loaded;
}

/// Makes what connections use from here on of what is loaded.
void TlsFiles::build() {
    const auto context = makeContext();
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
    STACK_OF(X509)* chain = nullptr;
    SSL_CTX_get0_chain_certs(pair.get(), &chain);
    if (SSL_CTX_use_cert_and_key(native, SSL_CTX_get0_certificate(pair.get()), SSL_CTX_get0_privatekey(pair.get()),
                                 chain, 1) != 1) {
        fail("certificate", certificate, opensslText());
    }
    if (authorities) {
        SSL_CTX_set1_cert_store(native, authorities.get());
        SSL_CTX_set_client_CA_list(native, namesIn(authorities.get()));
        constexpr unsigned char sessions[] = "kx";
        SSL_CTX_set_session_id_context(native, sessions, sizeof sessions - 1);
        SSL_CTX_set_verify(native, SSL_VERIFY_PEER, nullptr);
    }
    std::lock_guard lock(mutex);
    current = context;
}

void TlsFiles::run() {
    std::unique_lock lock(mutex);
    while (!wake.wait_for(lock, LOOK_EVERY, [this] { return isEnding; })) {
        lock.unlock();
        lookAgain();
        warnOfTheEnd();
        lock.lock();
    }
}

void TlsFiles::lookAgain() {
    const Identities found = look();
    const bool isPairNew = !(found.certificate == seen.certificate && found.key == seen.key);
    const bool isAuthorityNew = found.authority != seen.authority;
    seen = found;
    bool hasLoaded = false;
    const auto attempt = [&](bool isWanted, auto load) {
        if (!isWanted) {
            return;
        }
        try {
            load();
            hasLoaded = true;
        } catch (const std::exception& failure) {
            KxCRTE_LOG(4, "Korvex Container Service: Web API keeps its former TLS files: %s", failure.what());
        }
    };
    // What was deleted counts at the next start, and of the pair one may not be there yet.
    attempt(isPairNew && found.certificate.exists && found.key.exists, [this] { loadPair(); });
    attempt(isAuthorityNew && found.authority.exists, [this] { loadAuthority(); });
    attempt(std::exchange(hasLoaded, false), [this] { build(); });
    if (hasLoaded) {
        nextWarning = {};
        KxCRTE_LOG(2, "Korvex Container Service: Web API uses the renewed TLS files");
    }
}

/// Says once a day when the certificate ends soon.
void TlsFiles::warnOfTheEnd() {
    const auto now = std::chrono::steady_clock::now();
    if (now < nextWarning) {
        return;
    }
    nextWarning = now + WARN_EVERY;
    int days = 0;
    int seconds = 0;
    const ASN1_TIME* const end = X509_get0_notAfter(SSL_CTX_get0_certificate(pair.get()));
    if (ASN1_TIME_diff(&days, &seconds, nullptr, end) != 1 || days >= WARNING_DAYS) {
        return;
    }
    if (days < 0 || seconds < 0) {
        KxCRTE_LOG(3, "Korvex Container Service: Web API: the certificate '%s' has ended", certificate.c_str());
    } else {
        KxCRTE_LOG(3, "Korvex Container Service: Web API: the certificate '%s' ends in %d days", certificate.c_str(),
                   days);
    }
}

}  // namespace KxNNet
