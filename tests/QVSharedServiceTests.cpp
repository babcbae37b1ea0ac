#include <QVCore/Internal/QVSharedService.h>

#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

namespace {

class QVSharedServiceTest : public QVTest::CoreTest {};

TEST_F(QVSharedServiceTest, InitialisesOncePerClassAndAgainOnRequest) {
  std::atomic<std::int32_t> state{QVInitStateNever};
  int runs = 0;
  const auto initialise = [&] {
    ++runs;
    EXPECT_EQ(state, QVInitStateInProgress);
    state = QVInitStateDone;
  };
  QVGuardedInit(state, initialise);
  QVGuardedInit(state, initialise);
  EXPECT_EQ(runs, 1);
  state = QVInitStateRequestedAgain;
  QVGuardedInit(state, initialise);
  EXPECT_EQ(runs, 2);
  EXPECT_EQ(state, QVInitStateDone);
}

// A class may store the mark before its initialisation is over: who waits goes on from there.
TEST_F(QVSharedServiceTest, ReleasesAWaitingThreadExactlyWhenTheMarkIsStored) {
  std::atomic<std::int32_t> state{QVInitStateNever};
  std::atomic<bool> isStarted = false;
  std::atomic<bool> isReleased = false;
  std::thread waiting;
  QVGuardedInit(state, [&] {
    waiting = std::thread([&] {
      isStarted = true;
      QVGuardedInit(state, [] { FAIL() << "initialised twice"; });
      isReleased = true;
    });
    while (!isStarted) std::this_thread::yield();
    EXPECT_FALSE(isReleased);
    state = QVInitStateDone;
    while (!isReleased) std::this_thread::yield();  // while this is still under way
  });
  waiting.join();
}

/// A service whose initialisation asks for the instance, and fails as often as is wanted.
class Service : public QVSingleton {
 public:
  void init() {
    QVGuardedInit(state, [this] {
      seen = QVSharedInstance<Service>::get(state).get();
      ++runs;
      if (endsThread.exchange(false)) pthread_exit(nullptr);
      if (failures-- > 0) throw std::bad_alloc();
      state = QVInitStateDone;
    });
  }
  static inline std::atomic<std::int32_t> state{QVInitStateNever};
  static inline std::atomic<bool> endsThread = QVTest::kThreadsMayEnd;
  static inline int failures = 0;
  static inline int runs = 0;
  Service* seen = nullptr;
};

TEST_F(QVSharedServiceTest, LetsInitialisationAskForTheInstanceAndFail) {
  if (Service::endsThread) {
    std::thread([] { QVSharedInstance<Service>::get(Service::state); }).join();
  }
  EXPECT_EQ(Service::state, QVInitStateNever);
  Service::runs = 0;
  Service::failures = 3;
  const auto service = QVSharedInstance<Service>::get(Service::state);
  EXPECT_EQ(service->seen, service.get());
  EXPECT_EQ(Service::runs, 2);  // a second attempt came at once
  EXPECT_EQ(Service::state, QVInitStateNever);
  EXPECT_EQ(QVSharedInstance<Service>::get(Service::state), service);
  EXPECT_EQ(Service::runs, 4);
  EXPECT_EQ(Service::state, QVInitStateDone);
  QVSharedInstance<Service>::get(Service::state);
  EXPECT_EQ(Service::runs, 4);
}

TEST_F(QVSharedServiceTest, GivesOneInstanceToThreadsThatAskAtOnce) {
  std::vector<std::shared_ptr<QVNetworkManager>> seen(8);
  std::vector<std::thread> threads;
  for (auto& instance : seen) {
    threads.emplace_back([&instance] { instance = QVNetworkManager::sharedInstance(); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(seen[0]));
  EXPECT_NE(seen[0]->operationQueue(), nullptr);
}

TEST_F(QVSharedServiceTest, StartsTheCoreInOrder) {
  QVDebug::useCustomWKProcessPool(true);
  const auto core = std::make_shared<QVCoreInitialisation>();
  EXPECT_EQ(core->init(), core);
  EXPECT_NE(QVLogger::sharedInstance()->listenerDelegate(), nullptr);
  EXPECT_NE(QVNetworkManager::sharedInstance()->operationQueue(), nullptr);
  EXPECT_FALSE(QVCoreVariables::sharedInstance()->getData("#QV_SDK_ID#").isNil());
}

TEST_F(QVSharedServiceTest, PublishesItsVersion) {
  EXPECT_EQ(kQVCoreVersion, String("4.7.4"));
  EXPECT_EQ(std::string(QVCoreVersionString), "@(#)PROGRAM:QVCore  PROJECT:QVCore-1\n");
  EXPECT_EQ(QVCoreVersionNumber, 1.0);
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

TEST_F(QVDynamicStoreTest, ComesBackFromAnArchiveWithWhatWasInIt) {
  QVPlatform::KeyedArchiver archiver;
  archiver.encodeObjectForKey(storeOf({{"b", "1"}, {"a", "2"}}), "store");
  QVPlatform::KeyedUnarchiver unarchiver(archiver.finishEncoding());
  const auto restored =
      std::dynamic_pointer_cast<QVDynamicStore>(unarchiver.decodeObjectForKey("store").object());
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->debugDescription(), String("b : 1\na : 2\n"));
}

TEST_F(QVDynamicStoreTest, StaysWithoutAContainerThatTheArchiveDoesNotHold) {
  const auto store = storeOf({{"a", "1"}});
  store->setOrderedKeys(nullptr);
  QVPlatform::KeyedArchiver archiver;
  archiver.encodeObjectForKey(store, "store");
  QVPlatform::KeyedUnarchiver unarchiver(archiver.finishEncoding());
  const auto restored =
      std::dynamic_pointer_cast<QVDynamicStore>(unarchiver.decodeObjectForKey("store").object());
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->getData("a"), Value("1"));
  EXPECT_EQ(restored->debugDescription(), String(""));
  EXPECT_TRUE(restored->orderedKeys().isNull());
}

}  // namespace
