#include "tests/support/CoreTest.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/Test.h"

namespace {

constexpr const char* kUpChanged = "QVNotification: Internet Changed";

class QVNetworkManagerTest : public QVTest::CoreTest {
 protected:
  QVNetworkManagerTest() { QVDebug::setDebugLevel(6); }

  /// The shared manager, made with a network that is down, so that nothing leaves its queues.
  const std::shared_ptr<QVNetworkManager>& offlineManager() {
    network->change(0);
    return manager = QVNetworkManager::sharedInstance();
  }
  const std::shared_ptr<QVNetworkManager>& waitingManager() {
    QVPlatform::ClassRegistry::registerClass("QVMobilePrivacy");
    return manager = QVNetworkManager::sharedInstance();
  }
  static void request(const Dictionary& userInfo) { post(kQVNotification_HTTPRequest, userInfo); }
  std::vector<Dictionary> queued() const { return dataOf(*manager->operationQueue()); }
  static std::vector<Dictionary> dataOf(const QVPlatform::OperationQueue& queue) {
    std::vector<Dictionary> list;
    for (const auto& operation : queue.operations()) {
      const auto hit = std::dynamic_pointer_cast<QVHTTPOperation>(operation);
      list.push_back(hit ? hit->userInfo() : Dictionary());
    }
    return list;
  }
  std::vector<std::string> queuedBodies() const {
    std::vector<std::string> bodies;
    for (const auto& data : queued()) {
      bodies.emplace_back(data.get(kQVUserInfo_POSTData).string().view());
    }
    return bodies;
  }
  std::size_t cancelledCount() const {
    std::size_t count = 0;
    for (const auto& operation : manager->operationQueue()->operations()) {
      count += operation->isCancelled() ? 1 : 0;
    }
    return count;
  }
  bool hitsAreHeld() const { return manager->operationQueue()->isSuspended(); }
  bool consentIsHeld() const { return manager->consentQueue()->isSuspended(); }

  std::shared_ptr<QVNetworkManager> manager;
};

TEST_F(QVNetworkManagerTest, NumbersRequestsAndNamesTheirAnswers) {
  offlineManager();
  const Dictionary posted{{"url", "http://h/0"}, {"own", "key"}};
  request(posted);
  EXPECT_EQ(posted.count(), 2U);
  post("QVNotification: HTTP Request", {{"url", "http://h/1"}});  // only equals the constant
  manager->setNextRequestID(UINT32_MAX);
  for (int i = 0; i < 2; ++i) request({{"url", "http://h/"}});
  const auto hits = queued();
  ASSERT_EQ(hits.size(), 4U);
  EXPECT_EQ(Value(hits[0]), Value(Dictionary{{"url", "http://h/0"},
                                             {"own", "key"},
                                             {"ID", 0U},
                                             {"RequestType", kQVNotification_HTTPResponse}}));
  EXPECT_EQ(hits[1].get("ID"), Value(1U));
  EXPECT_EQ(hits[1].get("RequestType"), Value("QVUnknownRequestType"));
  EXPECT_EQ(hits[2].get("ID"), Value(UINT32_MAX));
  EXPECT_EQ(hits[3].get("ID"), Value(0U));
}

TEST_F(QVNetworkManagerTest, KnowsTheAnswersNameOfEveryKindOfRequest) {
  const struct {
    String name;
    const char* answer;
  } cases[] = {
      {kQVNotification_HTTPRequest, "QVNotification: HTTP Response"},
      {kQVNotification_SegmentRequest, "QVNotification: Segment Response"},
      {"QVNotification: HTTP Request", "QVUnknownRequestType"},
      {"QVNotification: Segment Request", "QVUnknownRequestType"},
      {kQVNotification_ConfigurationRequest + String("abc"),
       "QVNotification: Privacy Configuration Responseabc"},
      {kQVNotification_ConfigurationRequest, "QVNotification: Privacy Configuration Response"},
      {kQVNotification_ConfigurationRequest + String("a") + kQVNotification_ConfigurationRequest +
           String("b"),
       "QVNotification: Privacy Configuration Responseab"},
      {"QVNotification: Partner Request: p", "QVNotification: Partner Response: p"},
      {"something else", "QVUnknownRequestType"},
      {nullptr, "QVUnknownRequestType"},
  };
  for (const auto& [name, answer] : cases) {
    EXPECT_EQ(QVNetworkManager::requestTypeForNotificationName(name), String(answer))
        << name.view();
  }
}

TEST_F(QVNetworkManagerTest, TellsValidURLsFromOthers) {
  for (const char* url : {"http://h", "https://h:8/p?q=1#f", "http://[::1]/", "x://y"}) {
    EXPECT_TRUE(QVNetworkManager::isValidURL(url)) << url;
  }
  for (const char* url : {"", "bare", "/path", "//host", "http:///path", "http://h/a b", "http://",
                          "mailto:a@b", "http://h/\xc3\xa9", "\xff" /* null */}) {
    EXPECT_FALSE(QVNetworkManager::isValidURL(url)) << url;
  }
}

TEST_F(QVNetworkManagerTest, RefusesABadURLOfAnyTypeAndGoesOn) {
  offlineManager();
  const QVTest::Recorder refused{{kQVNotification_HTTPRequestError}};
  request({{"url", "bare"}, {"own", 1}});
  request({{"url", 5}});
  request({{"POSTData", "x"}});
  request(nullptr);
  request({{"url", "http://h/"}});
  ASSERT_EQ(refused.heard().size(), 4U);
  EXPECT_EQ(Value(refused.heard()[0].userInfo()),
            Value(Dictionary{{"url", "bare"},
                             {"own", 1},
                             {"ID", 0U},
                             {"RequestType", kQVNotification_HTTPResponse},
                             {"error", "Error : invalid URL"}}));
  EXPECT_TRUE(refused.heard()[3].userInfo().isNull());
  EXPECT_EQ(queued().at(0).get("ID"), Value(4U));  // refused ones were numbered as well
}

TEST_F(QVNetworkManagerTest, CancelsTheFirstLiveOperationOfAFullQueueForEachNewOne) {
  offlineManager();
  for (int i = 0; i < 2000; ++i) request({{"url", "http://h/"}});
  EXPECT_EQ(cancelledCount(), 0U);
  for (std::size_t extra = 1; extra <= 3; ++extra) {
    request({{"url", "http://h/"}});
    EXPECT_EQ(manager->operationQueue()->operationCount(), 2000 + extra);
    EXPECT_EQ(cancelledCount(), extra);
    EXPECT_TRUE(manager->operationQueue()->operationAtIndex(extra - 1)->isCancelled());
  }
  EXPECT_EQ(manager->nextRequestIDToCancel(), 0U);
  // Modules cast what they find, and use it.
  for (const auto& operation : manager->operationQueue()->operations()) {
    const auto hit = std::dynamic_pointer_cast<QVHTTPOperation>(operation);
    ASSERT_NE(hit, nullptr);
    hit->addPostData("x");
    EXPECT_EQ(hit->userInfo().isNull(), hit->isCancelled());
  }
}

TEST_F(QVNetworkManagerTest, GoesByAgeOnceATimestampIsSet) {
  offlineManager();
  const auto now = static_cast<std::int32_t>(QVPlatform::Date::now().secondsSince1970);
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(100, 3);
  for (const std::int32_t age : {10, 1000, 1000}) {
    request({{"url", "http://h/"}});
    const auto added = manager->operationQueue()->operations().back();
    std::static_pointer_cast<QVHTTPOperation>(added)->setTimestamp(now - age);
  }
  manager->removeOldOperationsInQueue();
  const auto operations = manager->operationQueue()->operations();
  EXPECT_FALSE(operations[0]->isCancelled());
  EXPECT_TRUE(operations[1]->isCancelled());
  EXPECT_FALSE(operations[2]->isCancelled());
}

TEST_F(QVNetworkManagerTest, GoesByADriftingPositionWhenNothingIsOldAndSaysSoPastTheEnd) {
  offlineManager();
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(-1, 2);
  EXPECT_EQ(manager->maxRequestLifetime(), UINT32_MAX);
  for (int i = 0; i < 2; ++i) request({{"url", "http://h/"}});
  request({{"url", "http://h/"}, {"HTTPURLResponse", "x"}});  // counts, though it goes elsewhere
  EXPECT_TRUE(manager->operationQueue()->operations()[0]->isCancelled());
  EXPECT_EQ(manager->nextRequestIDToCancel(), 1U);
  manager->setNextRequestIDToCancel(7);
  testing::internal::CaptureStderr();
  manager->removeOldestRequestOperation();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("position 7"));
  EXPECT_EQ(manager->nextRequestIDToCancel(), 8U);
  EXPECT_EQ(cancelledCount(), 1U);
}

TEST_F(QVNetworkManagerTest, HoldsHitsUntilTheConsentModuleStartsTheKitAndNotWhenItStopsIt) {
  QVTest::HTTPServer server;
  waitingManager();
  EXPECT_EQ(manager->managerState(), QVManagerStateWaitingForStart);
  EXPECT_TRUE(hitsAreHeld());
  EXPECT_FALSE(consentIsHeld());
  const QVTest::Recorder answers{{kQVNotification_HTTPResponse}};
  request({{"url", server.url("/0")}, {"POSTData", "a"}});
  request({{"url", server.url("/1")}});
  EXPECT_THAT(server.requests(), IsEmpty());
  post(kQVNotification_StartingTheSDK, {{"POSTData", 5}});  // a number counts by its text
  EXPECT_EQ(manager->managerState(), QVManagerStateStarted);
  ASSERT_EQ(answers.waitFor(2).size(), 2U);
  EXPECT_EQ(server.requests()[0].target + server.requests()[0].body, "/0a5");
  EXPECT_EQ(server.requests()[1].target + server.requests()[1].body, "/1(null)5");
  EXPECT_EQ(answers.heard()[1].userInfo().get("ID"), Value(1U));
  post(kQVNotification_StoppingTheSDK);
  request({{"url", server.url("/2")}});
  EXPECT_EQ(answers.waitFor(3).size(), 3U);
}

TEST_F(QVNetworkManagerTest, CancelsWaitingHitsWhenStoppedBeforeTheStartAndOnlyThen) {
  waitingManager();
  request({{"url", "http://h/"}});
  post(kQVNotification_StoppingTheSDK);
  EXPECT_EQ(manager->managerState(), QVManagerStateStopped);
  EXPECT_EQ(cancelledCount(), 1U);
  EXPECT_TRUE(hitsAreHeld());
  network->change(0);
  post(kQVNotification_StartingTheSDK);
  request({{"url", "http://h/"}});
  post(kQVNotification_StoppingTheSDK);
  EXPECT_EQ(cancelledCount(), 1U);
}

TEST_F(QVNetworkManagerTest, GivesTheUserAgentToWaitingHitsOnlyBeforeTheStart) {
  waitingManager();
  request({{"url", "http://h/"}, {"POSTData", "a"}});
  post(kQVNotification_UserAgentAvailable, {{"data", "not awaited"}});
  EXPECT_THAT(queuedBodies(), ElementsAre("a"));
  manager->waitForUserAgent();
  EXPECT_TRUE(manager->shouldWaitForUserAgent());
  post(kQVNotification_UserAgentAvailable, {{"data", "Mozilla/5.0 (X)"}});
  EXPECT_FALSE(manager->shouldWaitForUserAgent());
  EXPECT_THAT(queuedBodies(), ElementsAre("a&QV_USER_AGENT=Mozilla%2F5.0%20%28X%29"));
  EXPECT_TRUE(hitsAreHeld());  // consent is still awaited
  manager->setShouldWaitForUserAgent(true);
  post(kQVNotification_UserAgentAvailable, {{"data", 5}});  // no text, so none
  EXPECT_FALSE(manager->shouldWaitForUserAgent());
}

TEST_F(QVNetworkManagerTest, HoldsHitsForTheUserAgentAfterTheStartUnlessItIsKnown) {
  manager = QVNetworkManager::sharedInstance();
  EXPECT_FALSE(hitsAreHeld());
  manager->waitForUserAgent();
  EXPECT_TRUE(hitsAreHeld());
  post(kQVNotification_StartingTheSDK);
  post(kQVNotification_InternetUp);
  post(kQVNotification_OnForeground);
  EXPECT_TRUE(hitsAreHeld());
  post(kQVNotification_UserAgentAvailable, {{"data", "x"}});
  EXPECT_FALSE(hitsAreHeld());
  QVCoreVariables::sharedInstance()->addDataWithValue(kQVPredefinedVariable_UserAgent, "known");
  manager->waitForUserAgent();
  EXPECT_FALSE(hitsAreHeld() || manager->shouldWaitForUserAgent());
}

TEST_F(QVNetworkManagerTest, MissesNoUserAgentThatComesWhileItBeginsToWait) {
  manager = QVNetworkManager::sharedInstance();
  const auto variables = QVCoreVariables::sharedInstance();
  for (int i = 0; i < 300; ++i) {
    variables->removeData(kQVPredefinedVariable_UserAgent);
    {
      const std::jthread announcer([&] {
        variables->addDataWithValue(kQVPredefinedVariable_UserAgent, "x");
        post(kQVNotification_UserAgentAvailable, {{"data", "x"}});
      });
      manager->waitForUserAgent();
    }
    ASSERT_FALSE(hitsAreHeld() || manager->shouldWaitForUserAgent()) << i;
  }
}

TEST_F(QVNetworkManagerTest, AppendsToWaitingHitsAndNotToWhatIsMarkedForTheConsentQueue) {
  offlineManager();
  request({{"url", "http://h/"}, {"POSTData", "a"}});
  request({{"url", "http://h/"}, {"POSTData", "c"}, {"HTTPURLResponse", "x"}});
  manager->updateQueueWithCategories("&k=v");
  manager->updateQueueWithUserAgent("ua");
  EXPECT_THAT(queuedBodies(), ElementsAre("a&k=v&QV_USER_AGENT=ua"));
  EXPECT_EQ(dataOf(*manager->consentQueue()).at(0).get("POSTData"), Value("c"));
}

TEST_F(QVNetworkManagerTest, FollowsTheNetworkWithBothQueues) {
  offlineManager();
  EXPECT_TRUE(hitsAreHeld() && consentIsHeld());
  const QVTest::Recorder heard{
      {kQVNotification_InternetUp, kQVNotification_InternetDown, kUpChanged}};
  network->change(QVTest::ScriptedReachability::kReachable);
  ASSERT_TRUE(runMainQueueUntil([&] { return heard.heard().size() == 2; }));
  EXPECT_FALSE(hitsAreHeld() || consentIsHeld());
  EXPECT_THAT(heard.names(), ElementsAre("QVNotification: Internet Up", kUpChanged));
  EXPECT_EQ(heard.heard()[1].userInfo().get("data"), Value("QVNotification: Internet Up"));
  EXPECT_EQ(QVCoreVariables::sharedInstance()->getData("#QV_CONNEXION#"), Value("WiFi"));
  network->change(0);
  ASSERT_TRUE(runMainQueueUntil([&] { return heard.heard().size() == 4; }));
  EXPECT_TRUE(hitsAreHeld() && consentIsHeld());
  EXPECT_EQ(QVCoreVariables::sharedInstance()->getData("#QV_CONNEXION#"),
            Value("Connection Type Unavailable"));
}

TEST_F(QVNetworkManagerTest, RepeatsConnectivityOnceMoreForEachStart) {
  offlineManager();
  const QVTest::Recorder up{{kQVNotification_InternetUp}};
  post(kQVNotification_StartingTheSDK);
  post(kQVNotification_StartingTheSDK);
  network->change(QVTest::ScriptedReachability::kReachable);
  EXPECT_TRUE(runMainQueueUntil([&] { return up.heard().size() >= 3; }));
  QVPlatform::MainQueue::mainQueue().drain();
  EXPECT_EQ(up.heard().size(), 3U);
}

TEST_F(QVNetworkManagerTest, DescribesItselfByTheHitsBehindTheOneInFlight) {
  offlineManager();
  EXPECT_EQ(manager->description(), String("QVNetworkManager"));
  for (int i = 0; i < 3; ++i) {
    request({{"url", "http://h/"}});
    EXPECT_EQ(manager->description(),
              i == 0 ? String("QVNetworkManager")
                     : QVPlatform::stringWithFormat("QVNetworkManager : (waiting hits: %@)", {i}));
  }
}

TEST_F(QVNetworkManagerTest, StartsAfreshOnReinit) {
  offlineManager();
  request({{"url", "http://h/"}});
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(1, 1);
  const auto oldQueue = manager->operationQueue();
  EXPECT_EQ(manager->reinit(), manager);
  EXPECT_NE(manager->operationQueue(), oldQueue);
  EXPECT_EQ(manager->maxRequestsInQueue(), 2000U);
  EXPECT_EQ(manager->maxRequestLifetime(), 200000U);
  request({{"url", "http://h/"}});
  EXPECT_THAT(queued(), testing::SizeIs(1));  // the old listener is gone: it came once
  EXPECT_EQ(queued()[0].get("ID"), Value(0U));
}

TEST_F(QVNetworkManagerTest, LeavesASecondInstanceBareAndHarmless) {
  offlineManager();
  const auto second = std::make_shared<QVNetworkManager>();
  EXPECT_EQ(second->init(), second);
  EXPECT_EQ(second->operationQueue(), nullptr);
  EXPECT_TRUE(second->queueRequestWithData({{"url", "http://h/"}}));
  EXPECT_FALSE(second->queueRequestWithData(nullptr));
  second->postNetworkNotificationWithUserInfo(nullptr, nullptr);
  second->removeOldOperationsInQueue();
  second->removeOldestRequestOperation();
  second->updateQueueWithCategories("x");
  second->saveAllHits();
  second->restoreStockedHit();
  second->enableRunningInBackground();
  EXPECT_FALSE(second->isInternetReachable());
  EXPECT_EQ(second->description(), String("QVNetworkManager"));
}

/// Notes when it is destroyed.
template <class Base>
class Noted : public Base {
 public:
  Noted(const char* itsName, std::vector<std::string>& itsEvents)
      : name(itsName), events(itsEvents) {}
  ~Noted() override { events.push_back(name); }

  const std::string name;
  std::vector<std::string>& events;
};

TEST_F(QVNetworkManagerTest, ReleasesItsPartsInOrder) {
  using QVPlatform::OperationQueue;
  std::vector<std::string> events;
  auto instance = std::make_shared<QVNetworkManager>();
  instance->setReachability(std::make_shared<Noted<QVReachability>>("monitor", events));
  instance->setListenerDelegate(std::make_shared<Noted<QVEventListener>>("listener", events));
  instance->setSenderDelegate(std::make_shared<Noted<QVEventSender>>("sender", events));
  instance->setConsentQueue(std::make_shared<Noted<OperationQueue>>("consent", events));
  instance->setOperationQueue(std::make_shared<Noted<OperationQueue>>("hits", events));
  instance.reset();
  EXPECT_THAT(events, ElementsAre("hits", "consent", "sender", "listener", "monitor"));
}

TEST_F(QVNetworkManagerTest, NumbersEachRequestOnceWhenManyThreadsPost) {
  offlineManager();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int j = 0; j < 100; ++j) request({{"url", "http://h/"}});
    });
  }
  for (auto& thread : threads) thread.join();
  std::vector<bool> isSeen(400);
  for (const auto& data : queued()) {
    isSeen.at(static_cast<std::size_t>(data.get("ID").intValue())) = true;
  }
  EXPECT_THAT(isSeen, Each(true));
}

}  // namespace
