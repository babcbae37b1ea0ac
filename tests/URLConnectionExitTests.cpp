#include "tests/support/Certificate.h"
#include "tests/support/Exchange.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Test.h"

namespace {

[[noreturn]] void exitAmidTransfers(const std::string& url) {
  constexpr int kThreads = 4;
  static std::latch& underWay = *new std::latch(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    std::thread([url] {
      if (get(url).body != Data("ok")) std::_Exit(2);
      underWay.count_down();
      for (;;) get(url);
    }).detach();
  }
  underWay.wait();
  std::exit(0);
}

TEST(URLConnectionExit, TheProcessMayExitWhileTransfersAreUnderWay) {
  const Certificate certificate;
  const ServerProcess server(certificate.file(), certificate.keyFile());
  ASSERT_EQ(setenv("SSL_CERT_FILE", certificate.file().c_str(), 1), 0);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EXIT(exitAmidTransfers(server.url()), testing::ExitedWithCode(0), "");
  }
}

}  // namespace
