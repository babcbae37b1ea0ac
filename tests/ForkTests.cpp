#include "tests/support/CoreTest.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Test.h"

namespace {

bool isReadable(int descriptor) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}

class ForkTest : public CoreTest {
 protected:
  ForkTest() { QVDebug::setDebugLevel(6); }
  void SetUp() override {
    if (!kChildrenMayGoOn) GTEST_SKIP() << "no child may go on under a sanitizer";
  }

  /// What the child's function answers, or false when it hangs.
  static bool childSays(const std::function<bool()>& function) {
    return runInChild([&] {
             alarm(20);
             return function() ? 0 : 1;
           }) == 0;
  }
  static bool sendsAHit(const std::string& url) {
    const Recorder answers{{kQVNotification_HTTPResponse}};
    post(kQVNotification_HTTPRequest, {{"url", url}});
    const auto heard = answers.waitFor(1);
    return heard.size() == 1 && heard[0].userInfo().get("content") == Value("ok");
  }
};

TEST_F(ForkTest, LeavesTheChildAKitThatSends) {
  const ServerProcess server;
  const auto manager = QVNetworkManager::sharedInstance();
  ASSERT_TRUE(sendsAHit(server.url()));
  std::atomic<bool> isOver = false;
  std::thread poster([&] {  // keeps both threads of the parent in the kit at each fork
    while (!isOver) post(kQVNotification_HTTPRequest, {{"url", server.url()}});
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(childSays([&] {
      if (i % 2 == 0) manager->reinit();
      return sendsAHit(server.url());
    })) << i;
  }
  isOver = true;
  poster.join();
  while (manager->operationQueue()->operationCount() > 0) std::this_thread::yield();
  EXPECT_TRUE(sendsAHit(server.url()));
}

/// What a first transfer sets up takes milliseconds; the forks come at different moments of it.
TEST_F(ForkTest, LeavesItAmidTheFirstTransferOfTheParent) {
  const ServerProcess server;
  QVNetworkManager::sharedInstance();
  for (int i = 0; i < 20; ++i) {
    const auto parent = [&] {
      post(kQVNotification_HTTPRequest, {{"url", server.url()}});
      std::this_thread::sleep_for(std::chrono::microseconds(100 * i));
      return childSays([&] { return sendsAHit(server.url()); });
    };
    EXPECT_TRUE(childSays(parent)) << i;
  }
}

TEST_F(ForkTest, LeavesWhatWaitsToTheParent) {
  network->change(0);
  const auto manager = QVNetworkManager::sharedInstance();
  const auto hits = manager->operationQueue();
  post(kQVNotification_HTTPRequest, {{"url", "http://h/"}});
  std::atomic<int> runs = 0;
  SerialQueue serial("test");
  std::promise<void> mayEnd;
  serial.async([&] { mayEnd.get_future().wait(); });
  serial.async([&] { ++runs; });
  auto& mainQueue = MainQueue::mainQueue();
  const int descriptor = mainQueue.fileDescriptor();
  mainQueue.async([&] { ++runs; });

  EXPECT_TRUE(childSays([&] {
    const bool isFree = hits->operationCount() == 0 && hits->isSuspended() &&
                        mainQueue.fileDescriptor() == descriptor && !isReadable(descriptor);
    mainQueue.drain();
    mainQueue.async([&] { runs += 10; });
    const bool isTold = isReadable(descriptor);
    mainQueue.drain();
    std::promise<void> reached;
    serial.async([&] { reached.set_value(); });
    reached.get_future().wait();
    return isFree && isTold && MainQueue::isMainThread() && runs == 10;
  }));
  EXPECT_EQ(hits->operationCount(), 1U);
  EXPECT_TRUE(isReadable(descriptor));
  mainQueue.drain();
  mayEnd.set_value();
  while (runs != 2) std::this_thread::yield();
}

TEST_F(ForkTest, LetsTheChildWatchTheNetworkAnew) {
  NetworkReachability::setSource(nullptr);
  const auto byName = QVReachability::reachabilityWithHostname("localhost");
  ASSERT_TRUE(byName->startNotifier());
  ASSERT_TRUE(runMainQueueUntil([&] { return byName->isReachable(); }));
  EXPECT_TRUE(childSays([] {
    const auto other = QVReachability::reachabilityWithHostname("LOCALHOST");  // not looked up yet
    return other->startNotifier() && runMainQueueUntil([&] { return other->isReachable(); });
  }));
  byName->stopNotifier();
}

}  // namespace
