#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

namespace {

/// A process in which no user agent is sought.
class QVSharedServiceTest : public CoreTest {
 protected:
  QVSharedServiceTest() { QVDebug::useCustomWKProcessPool(true); }
};

TEST_F(QVSharedServiceTest, StartsTheLoggerThenTheManagerThenTheVariables) {
  std::string order;
  network->atFirstLook = [&] {
    const bool isLogging = !printed([] { post(kQVNotification_HitSent); }).empty();
    order += isLogging ? "logger, manager" : "manager";
  };
  Device::setIdentifierForVendorProvider([&] {
    const Recorder refused{{kQVNotification_HTTPRequestError}};
    post(kQVNotification_HTTPRequest);
    order += refused.heard().empty() ? ", variables" : " that answers, variables";
    return String("VENDOR");
  });
  const auto core = std::make_shared<QVCoreInitialisation>();
  EXPECT_EQ(core->init(), core);
  EXPECT_EQ(order, "logger, manager that answers, variables");
}

TEST_F(QVSharedServiceTest, StartsOnAnyThreadAndNeedsTheMainQueueForTheNetworkAlone) {
  network->change(0);
  const Recorder told{{kQVNotification_HTTPResponse, kQVNotification_HTTPRequestError}};
  for (const char* url : {"bare", "http://h/"}) post(kQVNotification_HTTPRequest, {{"url", url}});
  std::thread([] { std::make_shared<QVCoreInitialisation>()->init(); }).join();
  const auto manager = QVNetworkManager::sharedInstance();
  EXPECT_EQ(manager->operationQueue()->operationCount(), 0U) << "posted before the start";
  EXPECT_EQ(manager->nextRequestID(), 0U);
  EXPECT_THAT(told.heard(), IsEmpty());
  network->change(network->kReachable);
  EXPECT_TRUE(manager->operationQueue()->isSuspended());
  EXPECT_TRUE(runMainQueueUntil([&] { return !manager->operationQueue()->isSuspended(); }));
}

TEST_F(QVSharedServiceTest, IsInitialisedOnceThoughItAsksForItselfAndOtherThreadsWait) {
  std::shared_ptr<QVNetworkManager> within;
  std::vector<std::shared_ptr<QVNetworkManager>> seen(8);
  std::atomic<int> completeCount = 0;
  std::latch isAsked(8);
  std::vector<std::jthread> threads;
  network->atFirstLook = [&] {
    within = QVNetworkManager::sharedInstance();
    for (std::size_t i = 0; i < seen.size(); ++i) {
      threads.emplace_back([&, i] {
        isAsked.count_down();
        seen[i] = i % 2 == 0 ? QVNetworkManager::sharedInstance() : within->init();
        if (seen[i]->operationQueue()) ++completeCount;
      });
    }
    isAsked.wait();
  };
  const auto manager = QVNetworkManager::sharedInstance();
  threads.clear();
  EXPECT_EQ(within, manager);
  EXPECT_THAT(seen, Each(manager));
  EXPECT_EQ(completeCount, 8);
  EXPECT_EQ(network->numberOfAllSubscriptions(), 1U);
}

TEST_F(QVSharedServiceTest, IsInitialisedByTheNextThreadWhenOneEndsInTheMiddle) {
  if (!kThreadsMayEnd) GTEST_SKIP() << "no thread may end";
  network->atFirstLook = [] { pthread_exit(nullptr); };
  std::thread([] { QVNetworkManager::sharedInstance(); }).join();
  EXPECT_NE(QVNetworkManager::sharedInstance()->operationQueue(), nullptr);
}

TEST_F(QVSharedServiceTest, LeavesASecondInstanceBareAndHarmless) {
  std::make_shared<QVCoreInitialisation>()->init();
  const auto logger = std::make_shared<QVLogger>();
  EXPECT_EQ(logger->init(), logger);
  EXPECT_TRUE(!logger->listenerDelegate() && !logger->senderDelegate());
  logger->onNotificationReceived(Notification(kQVNotification_StoppingTheSDK));
  logger->changeNotificationCenter(nullptr);
  const auto variables = std::make_shared<QVCoreVariables>();
  EXPECT_EQ(variables->init(), variables);
  EXPECT_TRUE(!variables->dynamicStore() && !variables->senderDelegate());
  variables->addData(std::make_shared<QVDynamicStore>()->init());
  variables->addDataWithValue("#ADDED#", 1);
  variables->clearData();
  EXPECT_TRUE(variables->getData("#ADDED#").isNil() && variables->removeData("#ADDED#").isNil());
  variables->changeNotificationCenter(nullptr);
  const auto manager = std::make_shared<QVNetworkManager>();
  EXPECT_EQ(manager->init(), manager);
  EXPECT_EQ(manager->operationQueue(), nullptr);
  EXPECT_TRUE(manager->queueRequestWithData({{"url", "http://h/"}}));
  EXPECT_FALSE(manager->queueRequestWithData(nullptr));
  manager->postNetworkNotificationWithUserInfo(nullptr, nullptr);
  manager->removeOldOperationsInQueue();
  manager->removeOldestRequestOperation();
  manager->updateQueueWithCategories("x");
  manager->saveAllHits();
  EXPECT_FALSE(
      std::filesystem::exists(container.path() / "Library/QVPrivateDocuments/offlineHits"));
  manager->restoreStockedHit();
  manager->enableRunningInBackground();
  EXPECT_FALSE(manager->isInternetReachable());
  EXPECT_EQ(manager->description(), String("QVNetworkManager"));
}

TEST_F(QVSharedServiceTest, GivesItsWrappersTheCenterThatItIsGiven) {
  const auto center = std::make_shared<NotificationCenter>();
  const auto check = [&](auto& participant) {
    participant.changeNotificationCenter(center);
    EXPECT_EQ(participant.senderDelegate()->notificationCenter(), center);
    if constexpr (std::is_base_of_v<IQVEventListenerDelegate,
                                    std::decay_t<decltype(participant)>>) {
      EXPECT_EQ(participant.listenerDelegate()->notificationCenter(), center);
    }
  };
  QVDebug::blockHits(true);
  const auto file = std::make_shared<QVConfigurationFile>();
  file->setFilenameVersionPathAndURL("n", nullptr, "http://127.0.0.1/n");
  check(*file);
  check(*QVLogger::sharedInstance());
  check(*QVNetworkManager::sharedInstance());
  check(*QVCoreVariables::sharedInstance());
}

TEST_F(QVSharedServiceTest, LetsGoOfTheMonitorThatAnotherInitialisationReplaces) {
  network->change(0);
  const auto manager = QVNetworkManager::sharedInstance();
  const std::weak_ptr<QVReachability> replaced = manager->reachability();
  const Recorder changes{{kQVReachabilityChangedNotification}};
  const Recorder up{{kQVNotification_InternetUp}};
  manager->reinit();
  EXPECT_TRUE(runMainQueueUntil([&] { return replaced.expired(); }));
  network->change(ScriptedReachability::kReachable);
  EXPECT_TRUE(runMainQueueUntil([&] { return !changes.heard().empty(); }));
  EXPECT_EQ(up.heard().size(), 2U) << "it is registered once more with each initialisation";
  EXPECT_EQ(network->numberOfSubscriptions(), 1U);
}

std::shared_ptr<QVDynamicStore> storeOf(
    std::vector<std::pair<const char*, const char*>> variables) {
  auto store = std::make_shared<QVDynamicStore>()->init();
  for (const auto& [key, value] : variables) store->addDataWithValue(key, value);
  return store;
}

TEST(QVDynamicStoreTest, KeepsTheOrderInWhichKeysWereFirstAdded) {
  const auto store = storeOf({{"a", "1"}, {"b", "2"}, {"a", "3"}});
  EXPECT_EQ(store->debugDescription(), String("a : 3\nb : 2\n"));
  EXPECT_EQ(store->removeData("a"), Value("3"));
  store->addDataWithValue("a", "4");
  EXPECT_EQ(store->debugDescription(), String("b : 2\na : 4\n"));
  store->clearData();
  EXPECT_EQ(store->debugDescription(), String(""));
}

TEST(QVDynamicStoreTest, IgnoresNilEverywhere) {
  const auto store = storeOf({{"a", "1"}});
  store->addDataWithValue("a", nullptr);
  store->addDataWithValue(nullptr, "x");
  store->addData(std::shared_ptr<QVDynamicStore>());
  EXPECT_TRUE(store->removeData(nullptr).isNil());
  EXPECT_TRUE(store->removeData("absent").isNil());
  EXPECT_TRUE(store->getData(nullptr).isNil());
  EXPECT_EQ(store->debugDescription(), String("a : 1\n"));
}

TEST(QVDynamicStoreTest, MergesInTheOtherStoresOrderAndIntoItselfHarmlessly) {
  const auto store = storeOf({{"y", "old"}, {"z", "1"}});
  store->addData(storeOf({{"x", "2"}, {"y", "new"}}));
  store->addData(store);
  EXPECT_EQ(store->debugDescription(), String("y : new\nz : 1\nx : 2\n"));
}

TEST(QVDynamicStoreTest, IsMergedAndDescribedAtOneMoment) {
  const auto both = storeOf({{"x", "1"}, {"y", "2"}});
  const auto store = storeOf({});
  runAtOnce(3, [&](int thread) {
    for (int i = 0; i < 10000; ++i) {
      if (thread == 0) {
        store->addData(both);
        store->addData(store);
        store->clearData();
      } else if (thread == 1) {
        both->addData(store);
      } else {
        const auto lines = store->debugDescription();
        EXPECT_TRUE(lines.isEmpty() || lines == both->debugDescription()) << lines.view();
      }
    }
  });
}

TEST(QVDynamicStoreTest, KeepsEachKeyOnceWhateverThreadsDoAtOnce) {
  constexpr int kLast = 999;
  const auto store = storeOf({});
  runAtOnce(4, [&](int thread) {
    const String own(std::string(1, "abcd"[thread]));
    for (int i = 0; i <= kLast; ++i) {
      store->addDataWithValue(own, i);
      store->addDataWithValue("shared", own);
      const auto keys = store->orderedKeys().values();
      EXPECT_LE(std::count(keys.begin(), keys.end(), Value("shared")), 1);
      store->removeData("shared");
      EXPECT_EQ(store->getData(own), Value(i));
      if (i < kLast) store->removeData(own);
    }
  });
  EXPECT_EQ(store->orderedKeys().count(), 4U);
  EXPECT_EQ(Value(store->dynamicStore()),
            Value(Dictionary{{"a", kLast}, {"b", kLast}, {"c", kLast}, {"d", kLast}}));
}

TEST(QVDynamicStoreTest, ComesBackFromAnArchiveWithWhatWasInIt) {
  for (const bool isOrdered : {true, false}) {
    const auto store = storeOf({{"b", "1"}, {"a", "2"}});
    if (!isOrdered) store->setOrderedKeys(nullptr);
    KeyedArchiver archiver;
    archiver.encodeObjectForKey(store, "store");
    const Data archive = archiver.finishEncoding();
    for (const char* key : {"dynamicStore", "orderedKeys"}) {  // which other programs read
      EXPECT_NE(archive.view().find(key), std::string_view::npos) << key;
    }
    KeyedUnarchiver unarchiver(archive);
    const auto restored =
        std::dynamic_pointer_cast<QVDynamicStore>(unarchiver.decodeObjectForKey("store").object());
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->getData("a"), Value("2"));
    EXPECT_EQ(restored->debugDescription(), String(isOrdered ? "b : 1\na : 2\n" : ""));
    EXPECT_EQ(restored->orderedKeys().isNull(), !isOrdered);
  }
}

}  // namespace
