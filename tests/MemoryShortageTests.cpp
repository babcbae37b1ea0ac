#include "tests/support/FailingAllocations.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/Test.h"

namespace {

/// Counts notifications of one name, and takes no memory for it.
struct Tally {
  explicit Tally(const String& name) {
    center->addObserver(
        this, [this](const Notification&) { ++count; }, name);
  }
  ~Tally() { center->removeObserver(this); }

  const std::shared_ptr<NotificationCenter> center = NotificationCenter::defaultCenter();
  std::atomic<int> count{0};
};

class MemoryShortageTest : public NetworkManagerTest {
 protected:
  void SetUp() override {
    if (!FailingAllocations::kIsPossible) GTEST_SKIP() << "no allocation can be made to fail";
  }

  /// Runs the operation with its first allocation failing, with its second, and so on until all
  /// that it wants succeed; what holds after each run is for `check` to say.
  static void failEach(const std::function<void()>& operation, const std::function<bool()>& check,
                       FailingAllocations::Threads threads = FailingAllocations::Threads::kThis) {
    for (long count = 0, hasFailed = true; hasFailed; ++count) {
      bool isAsItShouldBe = false;
      {
        const FailingAllocations failing(count, threads);
        EXPECT_NO_THROW(operation()) << "allocation " << count;
        isAsItShouldBe = threads == FailingAllocations::Threads::kThis || check();
        hasFailed = failing.hasFailed();
      }
      ASSERT_TRUE(isAsItShouldBe && check()) << "allocation " << count;
    }
  }
};

TEST_F(MemoryShortageTest, IsThrownWhereJSONIsRead) {
  const String text(R"({"a": [1, "x", 1e999]})");
  bool isRead = false;
  for (long count = 0; !isRead; ++count) {
    const FailingAllocations failing(count);
    try {
      isRead = !JSONSerialization::JSONObjectWithText(text).isNil();
      ASSERT_TRUE(isRead) << "allocation " << count;
    } catch (const std::bad_alloc&) {
    }
  }
}

TEST_F(MemoryShortageTest, LeavesTheCoreStarted) {
  network->change(0);
  enum Outcome { kUntouched, kStarted, kBroken };
  int outcome = kStarted;
  for (long count = 0; outcome == kStarted; ++count) {
    outcome = runInChild([&]() -> int {
      const auto core = std::make_shared<QVCoreInitialisation>();
      const Notification hit(kQVNotification_HTTPRequest, nullptr,
                             Dictionary{{"url", "http://h/"}});
      bool hasFailed = false;
      try {
        const FailingAllocations failing(count);
        core->init();
        hasFailed = failing.hasFailed();
      } catch (...) {
        return kBroken;
      }
      NotificationCenter::defaultCenter()->postNotification(hit);
      manager = QVNetworkManager::sharedInstance();
      const bool isQueued = manager->operationQueue()->operationCount() == 1;
      const bool isWatching = manager->reachability()->reachabilityObject() != nullptr;
      const bool isKnown = !QVCoreVariables::sharedInstance()->getData("#QV_SDK_ID#").isNil();
      if (!isQueued || !isWatching || !isKnown) return kBroken;
      return hasFailed ? kStarted : kUntouched;
    });
    ASSERT_NE(outcome, kBroken) << "allocation " << count;
  }
  EXPECT_EQ(outcome, kUntouched);
}

TEST_F(MemoryShortageTest, QueuesAHitOrAnswersIt) {
  network->change(0);
  const auto hits = QVNetworkManager::sharedInstance()->operationQueue();
  const Tally errors(kQVNotification_HTTPRequestError);
  const Notification hit(kQVNotification_HTTPRequest, nullptr, Dictionary{{"url", "http://h/"}});
  const Notification bad(kQVNotification_HTTPRequest, nullptr, Dictionary{{"url", "bare"}});
  std::size_t handled = 0;
  const auto post = [&](const Notification& request) {
    ++handled;
    NotificationCenter::defaultCenter()->postNotification(request);
  };
  const auto isHandledOnce = [&] {
    return hits->operationCount() + static_cast<std::size_t>(errors.count) == handled;
  };
  failEach([&] { post(hit); }, isHandledOnce);
  failEach([&] { post(bad); }, isHandledOnce);
}

TEST_F(MemoryShortageTest, LeavesAStoreEachVariableOnce) {
  const auto store = std::make_shared<QVDynamicStore>()->init();
  const auto other = std::make_shared<QVDynamicStore>()->init();
  for (const char* key : {"a", "b", "c"}) other->addDataWithValue(key, "value");
  failEach(
      [&] {
        if (store->orderedKeys().count() == 3) store->clearData();
        callOut([&] { store->addData(other); });
      },
      [&] { return store->orderedKeys().count() == store->dynamicStore().count(); });
}

TEST_F(MemoryShortageTest, LeavesNoArchiveAndNothingMoreToRead) {
  const String first("first"), second("second");
  const Value other("other");
  for (const Value& value :
       {Value(String(std::string(5000, 'x'))), Value(Dictionary({{"list", Array({1, "text"})}}))}) {
    Data archive;
    for (long count = 0, hasFailed = true; hasFailed; ++count) {
      KeyedArchiver archiver;
      {
        const FailingAllocations failing(count);
        callOut([&] { archiver.encodeObjectForKey(value, first); });
        hasFailed = failing.hasFailed();
      }
      archiver.encodeObjectForKey(other, second);
      archive = archiver.finishEncoding();
      ASSERT_EQ(archive.isNull(), hasFailed) << count;
    }
    for (long count = 0, hasFailed = true; hasFailed; ++count) {
      KeyedUnarchiver unarchiver(archive);
      {
        const FailingAllocations failing(count);
        callOut([&] { unarchiver.decodeObjectForKey(first); });
        hasFailed = failing.hasFailed();
      }
      ASSERT_EQ(unarchiver.decodeObjectForKey(second), hasFailed ? Value() : other) << count;
    }
  }
}

TEST_F(MemoryShortageTest, AnswersEachHitThatIsSent) {
  const ServerProcess server;
  QVLogger::sharedInstance();
  QVNetworkManager::sharedInstance();
  const Tally errors(kQVNotification_HTTPRequestError);
  const Tally answers(kQVNotification_HTTPResponse);
  const Notification hit(kQVNotification_HTTPRequest, nullptr, Dictionary{{"url", server.url()}});
  int posted = 0;
  failEach(
      [&] {
        ++posted;
        NotificationCenter::defaultCenter()->postNotification(hit);
      },
      [&] { return waitUntil([&] { return errors.count + answers.count == posted; }); },
      FailingAllocations::Threads::kAll);
  EXPECT_GT(answers.count, 0);
  EXPECT_GT(errors.count, 0);
}

TEST_F(MemoryShortageTest, ReachesNoSenderListenerOrQueue) {
  class Owner : public IQVEventListenerDelegate {
   public:
    ~Owner() override { listener->setParent(nullptr); }
    void changeNotificationCenter(const std::shared_ptr<NotificationCenter>&) override {}
    void onNotificationReceived(const Notification&) override {
      ++heard;
      delete new int(heard);  // what a module does may fail as well
    }
    const std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();
    int heard = 0;
  };
  const auto sender = std::make_shared<QVEventSender>()->init();
  const String name("name");
  Owner owner;
  owner.listener->setParent(&owner);
  const Notification notification(name);
  int listening = 0;
  const auto hearsEach = [&] {
    owner.heard = 0;
    sender->send(notification);
    return owner.heard == listening;
  };
  failEach([&] { listening += owner.listener->listen(name) ? 1 : 0; }, hearsEach);
  failEach([&] { EXPECT_TRUE(sender->send(notification)); }, hearsEach);
  failEach(
      [&] {
        owner.listener->stopListening();
        listening = 0;
      },
      hearsEach);

  OperationQueue queue;
  queue.setSuspended(true);
  std::size_t added = 0;
  const auto operation = std::make_shared<Operation>();
  failEach([&] { added += queue.addOperation(operation) ? 1 : 0; },
           [&] { return queue.operationCount() == added; });
  failEach([&] { queue.setSuspended(false); },
           [&] {
             queue.addOperation(operation);
             return waitUntil([&] { return queue.operationCount() == 0; });
           });
}

}  // namespace
