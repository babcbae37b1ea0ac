#include <gtest/gtest.h>

#include <cstdlib>
#include <latch>
#include <thread>

#include "support/Certificate.h"
#include "support/Exchange.h"
#include "support/ServerProcess.h"

using namespace QVPlatform;
using namespace QVTest;

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
