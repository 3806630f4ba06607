#include "platform/net/tls_files.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "KxLog.h"
#include "platform/net/deadline.h"

namespace KxNNet {

namespace ssl = boost::asio::ssl;

namespace {

constexpr std::int64_t LOOK_EVERY_MILLISECONDS = 1000;

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

std::shared_ptr<ssl::context> TlsFiles::load(const Identities& identities) const {
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    SSL_CTX* const native = context->native_handle();
    SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
    SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(native, SSL_MODE_RELEASE_BUFFERS);
    boost::system::error_code error;
    context->use_certificate_chain_file(certificate, error);
    if (error) {
        fail("certificate", certificate, error.message());
    }
    context->use_private_key_file(key, ssl::context::pem, error);
    if (error) {
        fail("private key", key, error.message());
    }
    if (SSL_CTX_check_private_key(native) != 1) {
        fail("private key", key, "it does not belong to '" + certificate + "'");
    }
    const bool isAuthorityHere = identities[2].exists;
    if (isAuthorityHere) {
        context->load_verify_file(authority, error);
        if (error) {
            fail("CA certificate", authority, error.message());
        }
        SSL_CTX_set_client_CA_list(native, SSL_load_client_CA_file(authority.c_str()));
    } else if (asksClients) {
        // Deleted while it was in use, which counts at the next start.
        SSL_CTX_set1_cert_store(native, SSL_CTX_get_cert_store(current->native_handle()));
        SSL_CTX_set_client_CA_list(native, SSL_dup_CA_list(SSL_CTX_get_client_CA_list(current->native_handle())));
    }
    if (isAuthorityHere || asksClients) {
        constexpr unsigned char sessions[] = "kx";
        SSL_CTX_set_session_id_context(native, sessions, sizeof sessions - 1);
        context->set_verify_mode(ssl::verify_peer);
    }
    return context;
}

std::shared_ptr<ssl::context> TlsFiles::contextForConnection() {
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
