#include "tests/support/ChildProcess.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

/// The end of the kit, and whose the hits are until then.
class QVShutdownTest : public NetworkManagerTest {
 protected:
  static std::vector<Value> savedIDs() {
    const String path = QVLogger::sharedInstance()->getPrivatePathToFile("offlineHits");
    KeyedUnarchiver archive(FileManager::contentsAtPath(path, 1U << 20));
    std::vector<Value> ids;
    for (const Value& hit : archive.decodeObjectForKey("offlineHits").array().values()) {
      ids.push_back(hit.dictionary().get("ID"));
    }
    return ids;
  }
};

TEST_F(QVShutdownTest, IsRightAfterAShutdownHoweverTheHitUnderWayEnds) {
  manager = QVNetworkManager::sharedInstance();
  std::promise<bool> isIdleWithin;
  std::latch mayAnswer(1);
  const HTTPServer server([&](const auto&, auto&) { mayAnswer.wait(); });
  const auto shutDownWithin = [&](const auto&) {
    isIdleWithin.set_value(manager->shutdownWithin(1h).isIdle);
  };
  NotificationCenter::defaultCenter()->addObserver(&mayAnswer, shutDownWithin,
                                                   kQVNotification_HTTPResponse);
  for (int i = 0; i < 3; ++i) request({{"url", server.url()}});
  server.waitForRequests(1);
  const auto cut = manager->shutdownWithin(1ms);
  EXPECT_TRUE(!cut.isIdle && cut.savedHits == 3U);
  EXPECT_THAT(savedIDs(), SizeIs(3));
  request({{"url", "http://h/"}, {"HTTPURLResponse", "configuration"}});
  request({{"url", server.url()}});
  EXPECT_THAT(savedIDs(), SizeIs(4));
  mayAnswer.count_down();
  EXPECT_FALSE(isIdleWithin.get_future().get()) << "an observer cannot wait for itself";
  const auto whole = manager->shutdownWithin(10s);
  EXPECT_TRUE(whole.isIdle && whole.savedHits == 3U);
  EXPECT_THAT(savedIDs(), ElementsAre(Value(1U), Value(2U), Value(4U)));
  for (const auto& name : {kQVNotification_InternetUp, kQVNotification_OnForeground,
                           kQVNotification_StartingTheSDK, kQVNotification_UserAgentAvailable}) {
    post(name);
  }
  EXPECT_EQ(manager->consentQueue()->operationCount(), 1U);
  EXPECT_EQ(manager->operationQueue()->operationCount(), 3U);
  NotificationCenter::defaultCenter()->removeObserver(&mayAnswer);
  manager->reinit();
  EXPECT_THAT(server.waitForRequests(4), SizeIs(4));
}

/// Whoever has the directory says so; a fork gives it to the child no more than a start beside it.
TEST_F(QVShutdownTest, SaysThatAnotherProcessHasTheSameContainer) {
  const auto complaintOfAnother = [] {
    return ChildProcess([] { return complaintsOf([] { QVNetworkManager::sharedInstance(); }); })
        .text();
  };
  EXPECT_EQ(complaintOfAnother(), "");
  ASSERT_TRUE(claimDirectoryAtPath(QVLogger::privateQVDirectory()));
  EXPECT_THAT(complaintOfAnother(),
              HasSubstr("another process has its hits in " + container.path().string()));
  ChildProcess inheritor([](int output) { return dprintf(output, "forked\n") + pause(); });
  ASSERT_TRUE(inheritor.waitForOutput("forked"));
  ASSERT_TRUE(claimDirectoryAtPath(container.path().string()));
  EXPECT_EQ(complaintOfAnother(), "");
}

}  // namespace
