#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

using QVNetworkManagerTest = NetworkManagerTest;

TEST_F(QVNetworkManagerTest, NumbersRequestsAndNamesTheirAnswers) {
  beOffline();
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
  EXPECT_EQ(manager->totalRequestSent(), 0U);
}

TEST_F(QVNetworkManagerTest, KnowsTheAnswersNameOfEveryKindOfRequest) {
  const std::pair<String, const char*> cases[] = {
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
  beOffline();
  const Notification answer(kQVNotification_HTTPResponse, nullptr, {{"url", "http://h/"}});
  manager->onNotificationReceived(answer);  // no request, by whomever it is handed in
  EXPECT_THAT(queued(), IsEmpty());
}

TEST_F(QVNetworkManagerTest, RefusesABadURLOfAnyTypeAndGoesOn) {
  beOffline();
  const Recorder refused{{kQVNotification_HTTPRequestError}};
  const Value bad[] = {"bare",
                       5,
                       nullptr,
                       "",
                       "/path",
                       "//host",
                       "http:///path",
                       "http://h/a b",
                       "http://",
                       "mailto:a@b",
                       "http://h/\xc3\xa9",
                       "\xff"};  // the last one is null
  for (const Value& url : bad) {
    request({{"url", url}, {"own", 1}, {"ID", 77}});
    EXPECT_FALSE(QVNetworkManager::isValidURL(url.string())) << url.description().view();
  }
  request(nullptr);
  ASSERT_EQ(refused.heard().size(), std::size(bad) + 1);
  EXPECT_EQ(Value(refused.heard()[0].userInfo()),
            Value(Dictionary{{"url", "bare"},
                             {"own", 1},
                             {"ID", 0U},
                             {"RequestType", kQVNotification_HTTPResponse},
                             {"error", "Error : invalid URL"}}));
  EXPECT_TRUE(refused.heard().back().userInfo().isNull());
  for (const char* url : {"http://h", "https://h:8/p?q=1#f", "http://[::1]/", "x://y"}) {
    request({{"url", url}});
    EXPECT_TRUE(QVNetworkManager::isValidURL(url)) << url;
  }
  ASSERT_THAT(queued(), SizeIs(4));
  EXPECT_EQ(queued()[0].get("ID"), Value(std::size(bad) + 1));  // refused ones have numbers, too
}

TEST_F(QVNetworkManagerTest, MakesRoomByAgeOrElseByADriftingPosition) {
  const struct {
    std::int32_t lifetime, limit;
    std::vector<std::int32_t> ages;  // of the hits that wait; 0: without a timestamp
    int requestCount;                // of those that are posted then
    std::string after;               // the queue: 'x' is cancelled
    std::uint32_t position = 0, positionAfter = 0;
    bool isPastEnd = false, areForConsent = false, areCancelled = false;
  } cases[] = {
      {200000, 3, {0, 0}, 1, "..."},
      {200000, 3, {0, 0, 0}, 3, "xxx..."},
      {200000, 3, {0, 0, 0}, 1, "x...", 2, 2},
      {100, 3, {10, 1000, 1000}, 2, ".xx.."},
      {2000, 3, {10, 1000, 1000}, 1, "..x.", 2, 3},  // none is older
      {2000, 2, {10, 10}, 1, "...", 7, 8, true},
      {-1, 2, {0, 0}, 2, "xx..", 0, 2},             // counts as 2^32 - 1
      {200000, -1, {0, 0, 0}, 1, "...."},           // likewise
      {200000, 0, {}, 2, "x.", 0, 1, true},         // the first one finds nobody
      {200000, 1, {0}, 1, "x", 0, 0, false, true},  // what goes elsewhere makes room as well
      {200000, 1, {}, 3, "", 0, 0, false, true},    // what waits elsewhere does not count
      {200000, 2, {0, 0}, 1, "xx.", 1, 2, false, false, true},
  };
  beOffline();
  const auto now = static_cast<std::int32_t>(Date::now().secondsSince1970);
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    manager->reinit();
    for (const std::int32_t age : row.ages) {
      request({{"url", "http://h/"}});
      const auto hit = manager->operationQueue()->operations().back();
      if (age != 0) std::static_pointer_cast<QVHTTPOperation>(hit)->setTimestamp(now - age);
    }
    if (row.areCancelled) manager->operationQueue()->cancelAllOperations();
    manager->setNextRequestIDToCancel(row.position);
    manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(row.lifetime,
                                                                              row.limit);
    const auto requestAll = [&] {
      for (int i = 0; i < row.requestCount; ++i) {
        request({{"url", "http://h/"}, {row.areForConsent ? "HTTPURLResponse" : "own", "x"}});
      }
    };
    EXPECT_EQ(complaintsOf(requestAll).empty(), !row.isPastEnd);
    EXPECT_EQ(manager->nextRequestIDToCancel(), row.positionAfter);
    std::string after;
    for (const auto& operation : manager->operationQueue()->operations()) {
      // Modules cast what they find, and use it.
      const auto hit = std::dynamic_pointer_cast<QVHTTPOperation>(operation);
      ASSERT_NE(hit, nullptr);
      hit->addPostData("x");
      EXPECT_TRUE(hit->isCancelled() || !hit->userInfo().isNull());
      after += hit->isCancelled() ? 'x' : '.';
    }
    EXPECT_EQ(after, row.after);
  }
}

TEST_F(QVNetworkManagerTest, AppendsToWaitingHitsAndNotToWhatIsMarkedForTheConsentQueue) {
  beOffline();
  request({{"url", "http://h/"}, {"POSTData", "a"}});
  request({{"url", "http://h/"}, {"POSTData", "c"}, {"HTTPURLResponse", "x"}});
  manager->updateQueueWithCategories("&k=v");
  manager->updateQueueWithUserAgent("ua");
  EXPECT_EQ(queued().at(0).get("POSTData"), Value("a&k=v&QV_USER_AGENT=ua"));
  manager->setOperationQueue(manager->consentQueue());
  EXPECT_EQ(queued().at(0).get("POSTData"), Value("c"));
}

TEST_F(QVNetworkManagerTest, DescribesItselfByTheHitsBehindTheOneInFlight) {
  beOffline();
  for (const char* text : {"", "", " : (waiting hits: 1)", " : (waiting hits: 2)"}) {
    EXPECT_EQ(manager->description(), String("QVNetworkManager") + text);
    request({{"url", "http://h/"}});
  }
}

TEST_F(QVNetworkManagerTest, StartsAfreshOnReinit) {
  beOffline();
  request({{"url", "http://h/"}});
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(1, 1);
  manager->setNextRequestIDToCancel(5);
  const auto oldQueue = manager->operationQueue();
  const auto oldSender = manager->senderDelegate();
  EXPECT_EQ(manager->reinit(), manager);
  EXPECT_NE(manager->operationQueue(), oldQueue);
  EXPECT_EQ(oldSender->parent(), nullptr);
  EXPECT_EQ(manager->senderDelegate()->parent(), manager.get());
  EXPECT_EQ(manager->nextRequestIDToCancel(), 0U);
  EXPECT_EQ(manager->maxRequestsInQueue(), 2000U);
  EXPECT_EQ(manager->maxRequestLifetime(), 200000U);
  request({{"url", "http://h/"}});
  EXPECT_THAT(queued(), SizeIs(1));  // the old listener is gone: it came once
  EXPECT_EQ(queued()[0].get("ID"), Value(0U));
}

TEST_F(QVNetworkManagerTest, ReleasesItsPartsInOrder) {
  std::vector<std::string> events;
  const auto noted = [&](auto* part, const char* name) {
    const auto destroy = [&events, name](auto* released) {
      events.push_back(name);
      delete released;
    };
    return std::shared_ptr<std::remove_pointer_t<decltype(part)>>(part, destroy);
  };
  auto instance = std::make_shared<QVNetworkManager>();
  instance->setReachability(noted(new QVReachability, "monitor"));
  instance->setListenerDelegate(noted(new QVEventListener, "listener"));
  instance->setSenderDelegate(noted(new QVEventSender, "sender"));
  instance->setConsentQueue(noted(new OperationQueue, "consent"));
  instance->setOperationQueue(noted(new OperationQueue, "hits"));
  instance.reset();
  EXPECT_THAT(events, ElementsAre("hits", "consent", "sender", "listener", "monitor"));
  const auto monitor = QVReachability::reachabilityForInternetConnection();
  EXPECT_TRUE(monitor->startNotifier());
  instance = std::make_shared<QVNetworkManager>();
  instance->setReachability(monitor);
  instance->registerReachabilityChanged();
  instance.reset();
  EXPECT_EQ(monitor->reachabilityObject(), nullptr) << "it holds itself until it is stopped";
  NotificationCenter::defaultCenter()->postNotification(
      Notification(kQVReachabilityChangedNotification, monitor));
  EXPECT_TRUE(QVCoreVariables::sharedInstance()->getData("#QV_CONNEXION#").isNil());
}

template <class Owner>
const void* parentLeftBehindBy() {
  auto owner = std::make_shared<Owner>();
  const auto sender = std::make_shared<QVEventSender>();
  sender->setParent(owner.get());
  owner->setSenderDelegate(sender);
  owner.reset();
  return sender->parent();
}

TEST_F(QVNetworkManagerTest, LeavesNoSenderAParentThatHasGoneLikeAllOwners) {
  EXPECT_EQ(parentLeftBehindBy<QVNetworkManager>(), nullptr);
  EXPECT_EQ(parentLeftBehindBy<QVLogger>(), nullptr);
  EXPECT_EQ(parentLeftBehindBy<QVCoreVariables>(), nullptr);
  EXPECT_EQ(parentLeftBehindBy<QVConfigurationFile>(), nullptr);
}

TEST_F(QVNetworkManagerTest, NumbersEachRequestOnceWhenManyThreadsPost) {
  beOffline();
  runAtOnce(4, [](int) {
    for (int i = 0; i < 100; ++i) request({{"url", "http://h/"}});
  });
  std::set<int> numbers;
  for (const auto& data : queued()) numbers.insert(data.get("ID").intValue());
  EXPECT_THAT(numbers, SizeIs(400));
  EXPECT_EQ(*numbers.rbegin(), 399);
}

}  // namespace
