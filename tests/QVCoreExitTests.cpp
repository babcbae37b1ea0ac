#include "tests/support/Certificate.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Test.h"

namespace {

using QVCoreExitTest = NetworkManagerTest;

/// An application that sends hits and configurations, over TLS, ends whatever is going on.
TEST_F(QVCoreExitTest, MayComeAtAnyMomentWhileTransfersAreUnderWay) {
  const Certificate certificate;
  const ServerProcess server(certificate.file(), certificate.keyFile());
  ASSERT_EQ(setenv("SSL_CERT_FILE", certificate.file().c_str(), 1), 0);
  std::mt19937 random(20210803);
  std::uniform_int_distribution<int> microseconds(0, 20'000);
  for (int i = 0; i < 24; ++i) {
    const std::chrono::microseconds time(microseconds(random));
    const auto runAndExit = [&] {
      alarm(20);  // a hang ends the process by a signal
      std::make_shared<QVCoreInitialisation>()->init();
      QVNetworkManager::sharedInstance()->enableRunningInBackground();
      const Recorder answers{{kQVNotification_HTTPResponse}};
      const auto post = [&](int count) {
        for (int hit = 0; hit < count; ++hit) {
          request({{"url", server.url()}, {hit % 2 ? "own" : "HTTPURLResponse", "x"}});
        }
      };
      post(2);  // one on each connection, which sets up TLS
      if (answers.waitFor(2).size() < 2) return 1;
      post(50);
      std::this_thread::sleep_for(time);
      std::exit(0);
    };
    ASSERT_EQ(runInChild(runAndExit), 0) << "after " << time.count() << " microseconds";
  }
}

}  // namespace
