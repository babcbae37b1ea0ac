#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <set>

#include "support/Certificate.h"
#include "support/Exchange.h"
#include "support/HTTPServer.h"

using namespace QVPlatform;
using namespace QVTest;

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

/// The server refuses a form of this size unread and closes, while the client is still sending: TLS
/// then writes to a broken pipe, whose signal would end this program.
TEST(URLConnectionTLS, SparesTheHostTheSignalOfABrokenPipe) {
  const Certificate certificate;
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);  // for the server's threads, which inherit it
  HTTPServer server(certificate.file(), certificate.keyFile());
  pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
  signal(SIGPIPE, SIG_DFL);  // the server has changed it
  trust(certificate);
  MutableURLRequest request = requestTo(server.url());
  request.setHTTPMethod("POST");
  request.setHTTPBody(Data(std::string(8 << 20, 'x')));
  for (int i = 0; i < 20; ++i) {
    const Exchange exchange = send(request);
    EXPECT_NE(exchange.error != nullptr, exchange.status() == 413);
  }
  EXPECT_EQ(get(server.url()).body, Data("ok"));
}

}  // namespace
