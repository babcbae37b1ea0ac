#include "pages/lifecycle.h"
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
      alarm(60);  // a hang ends the process by a signal; a busy disk takes its time
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

/// Each life posts its own hits while it is ended, and beyond that; the next one sends what is
/// left.
TEST_F(QVCoreExitTest, LosesAndDoublesNothingWhenTheEventLoopHearsOfSIGTERM) {
  if (!kChildrenMayGoOn) GTEST_SKIP() << "no child may go on under a sanitizer";
  const std::string receipts = (container.path() / "receipts").string();
  const ServerProcess server([receipts](const auto& got, auto& response) {
    std::ofstream(receipts, std::ios::app) << got.path + "\n";
    HTTPServer::answerOK(got, response);
  });
  std::string posted;
  for (int life = 0; life < 6; ++life) {
    const auto post = [&](int output) {
      for (int hit = 0; hit < 300; ++hit) {  // all lives together fill no queue
        const std::string path = std::to_string(life) + "-" + std::to_string(hit);
        request({{"url", server.url() + path}});
        dprintf(output, "/%s\n", path.c_str());
      }
    };
    ChildProcess host([&](int output) {
      alarm(60);
      return runDaemon([&, output] { std::thread(post, output).detach(); });
    });
    EXPECT_TRUE(host.waitForOutput("-" + std::to_string(31 * life)));
    host.signal(SIGTERM);
    EXPECT_EQ(host.finish(), 0) << life;
    posted += host.printed();
  }
  manager = QVNetworkManager::sharedInstance();
  EXPECT_TRUE(waitUntil([&] { return manager->operationQueue()->operationCount() == 0; }));
  const auto received = words(contentsOf(receipts));
  const std::set<std::string> once(received.begin(), received.end());
  EXPECT_EQ(once.size(), received.size());
  EXPECT_GT(received.size(), 31U * 15);
  EXPECT_THAT(words(posted), Each(Truly([&](const auto& hit) { return once.contains(hit); })));
}

}  // namespace
