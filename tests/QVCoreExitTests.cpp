#include "tests/support/CoreTest.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Test.h"

namespace {

/// An application that sends hits and configurations, over TLS, and ends after this time whatever
/// is going on.
[[noreturn]] int runAndExit(const std::string& url, const std::string& container,
                            std::chrono::microseconds time) {
  alarm(20);  // a hang ends the process by a signal
  QVDebug::setDebugLevel(6);
  QVDebug::useCustomWKProcessPool(true);
  QVPlatform::Application::setContainerDirectory(container);
  QVPlatform::NetworkReachability::setSource(std::make_shared<QVTest::ScriptedReachability>());
  std::make_shared<QVCoreInitialisation>()->init();
  QVNetworkManager::sharedInstance()->enableRunningInBackground();
  const auto center = QVPlatform::NotificationCenter::defaultCenter();
  const QVPlatform::Dictionary hit{{"url", url}};
  const QVPlatform::Dictionary marked{{"url", url}, {"HTTPURLResponse", "configuration"}};
  for (int i = 0; i < 50; ++i) {
    center->postNotification(
        QVPlatform::Notification(kQVNotification_HTTPRequest, nullptr, i % 2 ? hit : marked));
  }
  std::this_thread::sleep_for(time);
  std::exit(0);
}

TEST(QVCoreExit, MayComeAtAnyMomentWhileHitsAreUnderWay) {
  const QVTest::ServerProcess server;
  const QVTest::TemporaryDirectory container;
  std::mt19937 random(20210803);
  std::uniform_int_distribution<int> microseconds(0, 20'000);
  for (int i = 0; i < 60; ++i) {
    const std::chrono::microseconds time(microseconds(random));
    ASSERT_EQ(runInChild([&] { return runAndExit(server.url(), container.path().string(), time); }),
              0)
        << "after " << time.count() << " microseconds";
  }
}

}  // namespace
