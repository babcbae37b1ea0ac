#include "tests/support/Certificate.h"
#include "tests/support/Exchange.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

void trust(const Certificate& certificate) {
  ASSERT_EQ(setenv("SSL_CERT_FILE", certificate.file().c_str(), 1), 0);
}

TEST(URLConnectionTLS, RefusesACertificateThatNobodyVouchesFor) {
  const Certificate certificate;
  HTTPServer server(certificate.file(), certificate.keyFile());
  const Exchange exchange = get(server.url());
  EXPECT_TRUE(exchange.body.isNull());
  EXPECT_EQ(exchange.response, nullptr);
  EXPECT_EQ(exchange.code(), URLErrorCode::secureConnectionFailed);
  EXPECT_TRUE(server.requests().empty());
}

TEST(URLConnectionTLS, RefusesACertificateOfAnotherHost) {
  const Certificate certificate("DNS:example.org");
  HTTPServer server(certificate.file(), certificate.keyFile());
  trust(certificate);
  EXPECT_EQ(get(server.url()).code(), URLErrorCode::secureConnectionFailed);
  EXPECT_TRUE(server.requests().empty());
}

TEST(URLConnectionTLS, TrustsTheCertificatesOfTheEnvironmentAndKeepsConnectionsOpen) {
  const Certificate certificate;
  HTTPServer server(certificate.file(), certificate.keyFile());
  trust(certificate);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(get(server.url()).body, Data("ok"));
  std::set<int> ports;
  for (const auto& request : server.requests()) ports.insert(request.clientPort);
  EXPECT_EQ(ports.size(), 1U);
}

/// The server ends and resets the connection at once; the first message of TLS, which takes the
/// client a while to prepare, then goes into a broken pipe. Its signal would end this program.
TEST(URLConnectionTLS, SparesTheHostTheSignalOfABrokenPipe) {
  RawServer server([](auto& connection) {
    connection.finish();
    connection.reset();
  });
  const std::string url = "https://127.0.0.1:" + std::to_string(server.port()) + "/";
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(get(url).body.isNull());
}

}  // namespace
