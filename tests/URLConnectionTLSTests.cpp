#include "tests/support/Certificate.h"
#include "tests/support/Exchange.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

TEST(URLConnectionTLS, TrustsTheCertificatesOfTheEnvironmentForTheirHostAlone) {
  const std::tuple<const char*, bool, URLErrorCode> cases[] = {
      {"IP:127.0.0.1", false, URLErrorCode::kSecureConnectionFailed},
      {"DNS:example.org", true, URLErrorCode::kSecureConnectionFailed},
      {"IP:127.0.0.1", true, {}}};
  for (const auto& [subject, isTrusted, code] : cases) {
    const Certificate certificate(subject);
    if (isTrusted) setenv("SSL_CERT_FILE", certificate.file().c_str(), 1);
    // In a process of its own, which looks into the environment before its first transfer.
    const int status = runInChild([&, &expected = code] {
      HTTPServer server(certificate.file(), certificate.keyFile());
      const bool isExpected = get(server.url()).code() == expected;
      return isExpected && server.requests().empty() == (expected != URLErrorCode{}) ? 0 : 1;
    });
    EXPECT_EQ(status, 0) << subject << isTrusted;
  }
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
