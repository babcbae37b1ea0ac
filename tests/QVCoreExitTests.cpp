#include "tests/support/Certificate.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Test.h"

namespace {

using QVCoreExitTest = NetworkManagerTest;

/// An application that sends hits and configurations, over TLS, ends whatever is going on.
TEST_F(QVCoreExitTest, MayComeAtAnyMomentWhileTransfersAreUnderWay) {
  const Certificate certificate;
  const HTTPServer::Handler answerAndClose = [](const auto&, auto& response) {
    response.set_header("Connection", "close");  // so that each transfer sets up TLS
  };
  const ServerProcess server(certificate.file(), certificate.keyFile(), answerAndClose);
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
      for (int hit = 0; hit < 50; ++hit) {
        request({{"url", server.url()}, {hit % 2 ? "own" : "HTTPURLResponse", "x"}});
      }
      // Every other process has set up TLS by then.
      if (i % 2 == 0 && answers.waitFor(1).empty()) return 1;
      std::this_thread::sleep_for(time);
      std::exit(0);
    };
    ASSERT_EQ(runInChild(runAndExit), 0) << "after " << time.count() << " microseconds";
  }
}

}  // namespace
