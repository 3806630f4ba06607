#include "platform/console/device/certificate.h"

#include <openssl/pem.h>
#include <openssl/x509.h>
#include <time.h>

#include <cstdio>
#include <memory>
#include <string>

#include "service/paths.h"

namespace KxNConsole {

std::optional<std::int64_t> findCertificateEnd() {
    const std::string path = KxNContainer::KxNContainerPaths::CONTAINER_CERTS_DIR + "/server.crt";
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file) {
        return std::nullopt;
    }
    const std::unique_ptr<X509, void (*)(X509*)> certificate(PEM_read_X509(file.get(), nullptr, nullptr, nullptr),
                                                             X509_free);
    tm end{};
    if (!certificate || ASN1_TIME_to_tm(X509_get0_notAfter(certificate.get()), &end) != 1) {
        return std::nullopt;
    }
    return std::int64_t{::timegm(&end)} * 1000;
}

}  // namespace KxNConsole
