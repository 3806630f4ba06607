// TLS under load and while its files are renewed. What it refuses is tried on the whole program.
#include <openssl/ssl.h>

#include "server_fixture.h"

namespace KxNWebApiTest {
namespace {

using TlsContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

/// The answer to a request, behind the name in the server's certificate.
std::string askOverTls(const TestServer& server, SSL_CTX* context, const std::string& request) {
    RawClient connection(server.port());
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context), &SSL_free);
    SSL_set_fd(tls.get(), connection.descriptor());
    if (SSL_connect(tls.get()) != 1) {
        return "no connection";
    }
    const std::unique_ptr<X509, decltype(&X509_free)> shown(SSL_get1_peer_certificate(tls.get()), &X509_free);
    char buffer[16384] = "";
    X509_NAME_oneline(X509_get_subject_name(shown.get()), buffer, sizeof buffer);
    std::string answer = buffer;
    if (SSL_write(tls.get(), request.data(), static_cast<int>(request.size())) <= 0) {
        return "cut off while sending";
    }
    for (int got; (got = SSL_read(tls.get(), buffer, sizeof buffer)) > 0;) {
        answer.append(buffer, static_cast<std::size_t>(got));
    }
    return answer;
}

TEST(ServerTls, AnUploadArrivesWholeAndRenewedFilesAreUsed) {
    const TemporaryDirectory directory;
    // Renamed into place, as whoever renews a certificate does.
    const auto install = [&](const std::string& subject) {
        const std::string command = "cd " + directory.path("") +
                                    " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2"
                                    " -keyout new.key -out new.crt 2>/dev/null -subj /CN=" +
                                    subject + " && mv new.key server.key && mv new.crt server.crt";
        ASSERT_EQ(std::system(command.c_str()), 0);
    };
    install("first");
    std::filesystem::copy_file(directory.path("server.crt"), directory.path("ca.crt"));
    const TlsContext stranger(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
    const TlsContext known(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
    SSL_CTX_use_certificate_file(known.get(), directory.path("server.crt").c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_use_PrivateKey_file(known.get(), directory.path("server.key").c_str(), SSL_FILETYPE_PEM);

    TestHandler handler;
    std::string received;
    handler.takeChunk = [&](std::string_view data, std::uint64_t, const std::string&) {
        received += data;
        return true;
    };
    TestServer server(handler, {}, 1s, directory.path(""));
    std::string body;
    for (int i = 0; body.size() < 16'000'000; ++i) {
        body += std::to_string(i);
    }
    const std::string upload = makeHead(server, "POST /api/v1/files",
                                        "Connection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n");
    ASSERT_THAT(askOverTls(server, stranger.get(), upload + body), HasSubstr("200 OK"));
    EXPECT_TRUE(received == body);
    handler.takeChunk = [](std::string_view, std::uint64_t, const std::string&) { return false; };
    handler.finishUpload = [] { return 400; };
    EXPECT_THAT(askOverTls(server, stranger.get(), upload + body), HasSubstr("HTTP/1.1 400")) << "while it still sends";

    const std::string request = "GET /api/v1/fast HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n";
    EXPECT_THAT(askOverTls(server, known.get(), request), HasSubstr("/CN=firstHTTP/1.1 200 OK"));
    testing::internal::CaptureStderr();
    askOverTls(server, known.get(), "DELETE /api/v1/items/a HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("identity=\"CN=first\""));
    // The authority is deleted, which counts at the next start, and the pair is renewed, which counts within a second.
    std::filesystem::remove(directory.path("ca.crt"));
    install("second");
    EXPECT_TRUE(
        waitFor([&] { return askOverTls(server, known.get(), request).starts_with("/CN=secondHTTP/1.1 200"); }));
    EXPECT_THAT(askOverTls(server, stranger.get(), request), HasSubstr("401 Unauthorized"));
}

TEST(TlsFiles, AnAuthorityAloneIsToldToMeanNothing) {
    const TemporaryDirectory directory;
    for (const bool isThere : {false, true}) {
        if (isThere) {
            writeFile(directory.path("ca.crt"), "");
        }
        testing::internal::CaptureStderr();
        EXPECT_FALSE(KxNNet::TlsFiles(directory.path("")).isOn());
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_EQ(told.find("without a server certificate there is no TLS") != told.npos, isThere) << told;
    }
}

}  // namespace
}  // namespace KxNWebApiTest
