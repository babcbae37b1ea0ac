#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

namespace {

/// A network that does something when it is asked for the first time, which is in the middle of the
/// manager's initialisation.
class NoticedNetwork : public QVTest::ScriptedReachability {
 public:
  bool getFlags(const ReachabilityTarget& target, NetworkReachabilityFlags* flags) override {
    if (const auto action = std::exchange(atFirstLook, nullptr)) action();
    return ScriptedReachability::getFlags(target, flags);
  }
  std::shared_ptr<void> subscribe(const ReachabilityTarget& target, Changed changed) override {
    ++subscriptions;
    return ScriptedReachability::subscribe(target, changed);
  }

  std::function<void()> atFirstLook;
  int subscriptions = 0;
};

class QVSharedServiceTest : public QVTest::CoreTest {
 protected:
  QVSharedServiceTest() {
    NetworkReachability::setSource(noticed);
    QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
  }

  const std::shared_ptr<NoticedNetwork> noticed = std::make_shared<NoticedNetwork>();
};

TEST_F(QVSharedServiceTest, StartsTheLoggerThenTheManagerThenTheVariables) {
  std::string order;
  noticed->atFirstLook = [&] {
    const bool isLogging = !printed([] { post(kQVNotification_HitSent); }).empty();
    order += isLogging ? "logger, manager" : "manager";
  };
  Device::setIdentifierForVendorProvider([&] {
    const QVTest::Recorder refused{{kQVNotification_HTTPRequestError}};
    post(kQVNotification_HTTPRequest);
    order += refused.heard().empty() ? ", variables" : " that answers, variables";
    return String("VENDOR");
  });
  const auto core = std::make_shared<QVCoreInitialisation>();
  EXPECT_EQ(core->init(), core);
  EXPECT_EQ(order, "logger, manager that answers, variables");
}

TEST_F(QVSharedServiceTest, IsInitialisedOnceThoughItAsksForItselfAndOtherThreadsWait) {
  std::shared_ptr<QVNetworkManager> within;
  std::vector<std::shared_ptr<QVNetworkManager>> seen(8);
  std::atomic<int> completeCount = 0;
  std::latch isAsked(8);
  std::vector<std::jthread> threads;
  noticed->atFirstLook = [&] {
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
  EXPECT_EQ(noticed->subscriptions, 1);
}

TEST_F(QVSharedServiceTest, IsInitialisedByTheNextThreadWhenOneEndsInTheMiddle) {
  if (!QVTest::kThreadsMayEnd) GTEST_SKIP() << "no thread may end";
  noticed->atFirstLook = [] { pthread_exit(nullptr); };
  std::thread([] { QVNetworkManager::sharedInstance(); }).join();
  EXPECT_NE(QVNetworkManager::sharedInstance()->operationQueue(), nullptr);
}

TEST_F(QVSharedServiceTest, LeavesASecondInstanceBareAndHarmless) {
  QVLogger::sharedInstance();
  QVCoreVariables::sharedInstance();
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
  noticed->change(0);
  const auto manager = QVNetworkManager::sharedInstance();
  const std::weak_ptr<QVReachability> replaced = manager->reachability();
  const QVTest::Recorder changes{{kQVReachabilityChangedNotification}};
  const QVTest::Recorder up{{kQVNotification_InternetUp}};
  manager->reinit();
  EXPECT_TRUE(runMainQueueUntil([&] { return replaced.expired(); }));
  noticed->change(QVTest::ScriptedReachability::kReachable);
  EXPECT_TRUE(runMainQueueUntil([&] { return !changes.heard().empty(); }));
  EXPECT_EQ(up.heard().size(), 2U) << "it is registered once more with each initialisation";
  EXPECT_EQ(noticed->subscriptions, 2);
}

TEST_F(QVSharedServiceTest, TellsOfTheNetworkWhenItsVariableAndItsQueuesAreReady) {
  noticed->change(0);
  const auto manager = QVNetworkManager::sharedInstance();
  std::vector<std::string> told;
  const auto tell = [&](const Notification& heard) {
    const Value variable = QVCoreVariables::sharedInstance()->getData("#QV_CONNEXION#");
    const bool isHeld =
        manager->operationQueue()->isSuspended() || manager->consentQueue()->isSuspended();
    told.push_back(std::string((heard.name() + ": " + variable.description()).view()) +
                   (isHeld ? ", held" : ", running"));
  };
  const String names[] = {kQVNotification_InternetChanged, kQVNotification_InternetUp,
                          kQVNotification_InternetDown};
  for (const String& name : names) {
    NotificationCenter::defaultCenter()->addObserver(this, tell, name);
  }
  for (const auto flags : {QVTest::ScriptedReachability::kReachable, 0U}) {
    noticed->change(flags);
    const std::size_t count = told.size() + 2;
    EXPECT_TRUE(runMainQueueUntil([&] { return told.size() >= count; }));
  }
  EXPECT_THAT(told,
              ElementsAre("QVNotification: Internet Up: WiFi, running",
                          "QVNotification: Internet Changed: WiFi, running",
                          "QVNotification: Internet Down: Connection Type Unavailable, held",
                          "QVNotification: Internet Changed: Connection Type Unavailable, held"));
}

class QVDynamicStoreTest : public ::testing::Test {
 protected:
  static std::shared_ptr<QVDynamicStore> storeOf(
      std::vector<std::pair<const char*, const char*>> variables) {
    auto store = std::make_shared<QVDynamicStore>()->init();
    for (const auto& [key, value] : variables) store->addDataWithValue(key, value);
    return store;
  }
};

TEST_F(QVDynamicStoreTest, KeepsTheOrderInWhichKeysWereFirstAdded) {
  const auto store = storeOf({{"a", "1"}, {"b", "2"}, {"a", "3"}});
  EXPECT_EQ(store->debugDescription(), String("a : 3\nb : 2\n"));
  EXPECT_EQ(store->removeData("a"), Value("3"));
  store->addDataWithValue("a", "4");
  EXPECT_EQ(store->debugDescription(), String("b : 2\na : 4\n"));
  store->clearData();
  EXPECT_EQ(store->debugDescription(), String(""));
}

TEST_F(QVDynamicStoreTest, IgnoresNilEverywhere) {
  const auto store = storeOf({{"a", "1"}});
  store->addDataWithValue("a", nullptr);
  store->addDataWithValue(nullptr, "x");
  store->addData(std::shared_ptr<QVDynamicStore>());
  EXPECT_TRUE(store->removeData(nullptr).isNil());
  EXPECT_TRUE(store->removeData("absent").isNil());
  EXPECT_TRUE(store->getData(nullptr).isNil());
  EXPECT_EQ(store->debugDescription(), String("a : 1\n"));
}

TEST_F(QVDynamicStoreTest, MergesInTheOtherStoresOrderAndIntoItselfHarmlessly) {
  const auto store = storeOf({{"y", "old"}, {"z", "1"}});
  store->addData(storeOf({{"x", "2"}, {"y", "new"}}));
  store->addData(store);
  EXPECT_EQ(store->debugDescription(), String("y : new\nz : 1\nx : 2\n"));
}

TEST_F(QVDynamicStoreTest, IsMergedAndDescribedAtOneMoment) {
  const auto both = storeOf({{"x", "1"}, {"y", "2"}});
  const auto store = storeOf({});
  {
    const std::jthread writer([&] {
      for (int i = 0; i < 1000; ++i) {
        store->addData(both);
        store->addData(store);
        store->clearData();
      }
    });
    const std::jthread mirror([&] {
      for (int i = 0; i < 1000; ++i) both->addData(store);
    });
    for (int i = 0; i < 1000; ++i) {
      const auto lines = store->debugDescription();
      EXPECT_TRUE(lines.isEmpty() || lines == both->debugDescription()) << lines.view();
    }
  }
}

TEST_F(QVDynamicStoreTest, KeepsEachKeyOnceWhateverThreadsDoAtOnce) {
  constexpr int kLast = 999;
  const auto store = storeOf({});
  {
    std::vector<std::jthread> threads;
    for (const char* own : {"a", "b", "c", "d"}) {
      threads.emplace_back([&store, own] {
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
    }
  }
  EXPECT_EQ(store->orderedKeys().count(), 4U);
  EXPECT_EQ(Value(store->dynamicStore()),
            Value(Dictionary{{"a", kLast}, {"b", kLast}, {"c", kLast}, {"d", kLast}}));
}

TEST_F(QVDynamicStoreTest, ComesBackFromAnArchiveWithWhatWasInIt) {
  for (const bool isOrdered : {true, false}) {
    const auto store = storeOf({{"b", "1"}, {"a", "2"}});
    if (!isOrdered) store->setOrderedKeys(nullptr);
    QVPlatform::KeyedArchiver archiver;
    archiver.encodeObjectForKey(store, "store");
    QVPlatform::KeyedUnarchiver unarchiver(archiver.finishEncoding());
    const auto restored =
        std::dynamic_pointer_cast<QVDynamicStore>(unarchiver.decodeObjectForKey("store").object());
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->getData("a"), Value("2"));
    EXPECT_EQ(restored->debugDescription(), String(isOrdered ? "b : 1\na : 2\n" : ""));
    EXPECT_EQ(restored->orderedKeys().isNull(), !isOrdered);
  }
}

}  // namespace
