#include "tests/support/FailingAllocations.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/OfflineHitsTest.h"
#include "tests/support/Test.h"

namespace {

/// Saves that follow one another, of which each writes anew only what has changed.
using QVKeptHitsTest = OfflineHitsTest;

TEST_F(QVKeptHitsTest, SavesAnewWhenHitsWereRestoredInTheMiddleOfASave) {
  const auto manager = QVNetworkManager::sharedInstance();
  int saves = 0;
  const auto object = std::make_shared<Archived>([&] {
    if (saves++ > 0) return;
    writeHits({hit("http://h/", 7U)});
    manager->reinit();
  });
  request({{"url", "http://h/"}, {"own", object}});
  manager->saveAllHits();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(7U)));
  EXPECT_EQ(saved(), queued());
}

TEST_F(QVKeptHitsTest, LeavesInPlaceWhatIsNewerThanASaveThatTookLonger) {
  const auto manager = QVNetworkManager::sharedInstance();
  int saves = 0;
  std::latch isSaving(1), isRestoring(1);
  const auto object = std::make_shared<Archived>([&] {
    if (++saves == 1) {
      request({{"url", "http://h/"}});
      manager->saveAllHits();
    } else if (saves == 3) {
      isSaving.count_down();
      isRestoring.wait();
    }
  });
  request({{"url", "http://h/"}, {"own", object}});
  manager->saveAllHits();
  EXPECT_THAT(idsOf(saved()), ElementsAre(Value(0U), Value(1U)));

  std::thread saver([&] { manager->saveAllHits(); });
  isSaving.wait();
  writeHits({hit("http://h/", 7U), hit("bare", 8U)});
  atRefusal([&] {
    isRestoring.count_down();
    saver.join();
  });
  manager->reinit();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(7U)));
  EXPECT_EQ(saved(), queued());
}

TEST_F(QVKeptHitsTest, SavesAtEachChangeOfTheCountOnceAskedTo) {
  const QVTest::HTTPServer server([this](const auto&, auto& response) {
    response.set_content(std::to_string(saved().size()), "text/plain");
  });
  const QVTest::Recorder answers{{kQVNotification_HTTPResponse}};
  const auto manager = QVNetworkManager::sharedInstance();
  manager->enableRunningInBackground();
  for (std::size_t count = 1; count <= 3; ++count) {
    const Value date = count == 2 ? Value(Date{1.0}) : Value();  // one that is not plain
    request({{"url", server.url()}, {"date", date}});
    EXPECT_THAT(saved(), SizeIs(count));
    EXPECT_EQ(saved().back().dictionary().get("date"), date);
  }
  post(kQVNotification_OnBackground);
  post(kQVNotification_OnForeground);
  EXPECT_THAT(queued(), SizeIs(3));
  EXPECT_THAT(saved(), SizeIs(3));
  int stranger = 0;
  std::filesystem::remove(path().view());
  manager->observeValueForKeyPathOfObjectChangeContext("operationCount", manager->operationQueue(),
                                                       3, &stranger);
  EXPECT_FALSE(FileManager::fileExistsAtPath(path()));
  manager->saveAllHits();
  const auto endThread = [](const Notification& answer) {
    if (kThreadsMayEnd && answer.userInfo().get("ID") == Value(1U)) pthread_exit(nullptr);
  };
  NotificationCenter::defaultCenter()->addObserver(&stranger, endThread,
                                                   kQVNotification_HTTPResponse);
  manager->operationQueue()->setSuspended(false);
  std::string sizes;  // of the file, as each hit arrives
  for (const auto& answer : answers.waitFor(3)) {
    sizes += answer.userInfo().get("content").string().view();
  }
  EXPECT_EQ(sizes, "321");
  EXPECT_TRUE(runMainQueueUntil([this] { return saved().empty(); }));
}

TEST_F(QVKeptHitsTest, SavesWhatHasBecomeOfHitsThatWereSavedBefore) {
  const auto manager = QVNetworkManager::sharedInstance();
  const auto at = [&](std::size_t index) {
    return std::static_pointer_cast<QVHTTPOperation>(
        manager->operationQueue()->operationAtIndex(index));
  };
  Dictionary known;  // the data of the last hit, or what becomes it
  const std::function<void()> changes[] = {
      [] {},
      [&] { at(0)->cancel(); },
      [&] { at(0)->addPostData("more"); },
      [&] { at(2)->cancel(); },
      [&] {  // what is kept begins with another hit by then
        at(0)->cancel();
        request({{"url", "http://h/"}});
        at(2)->cancel();
      },
      [&] { at(2)->addPostData("more"); },
      [&] { at(2)->userInfo().set("own", 1); },
      [&] {
        at(2)->setUserInfo({{"url", "http://h/new"}});
      },
      [&] { known.set("own", 1); },
      [&] {
        at(3)->setUserInfo(known = {{"ID", 1}});
        manager->saveAllHits();
        known.set("ID", 2);
      },
      [&] { manager->updateQueueWithCategories("&c=1"); },
      [&] { manager->operationQueue()->cancelAllOperations(); }};
  for (const auto& change : changes) {
    manager->setOperationQueue(suspendedQueue());
    manager->enableRunningInBackground();
    for (int i = 0; i < 4; ++i) request({{"url", "http://h/"}});
    const auto last =
        std::make_shared<QVHTTPOperation>()->initWithData({{"url", "http://h/"}, {"ID", 0}});
    known = last->userInfo();
    manager->operationQueue()->addOperation(last);
    change();
    request({{"url", "http://h/"}});
    const std::vector<Value> found = saved();
    std::vector<Value> expected;  // asking for it shares the data
    for (const auto& operation : manager->operationQueue()->operations()) {
      if (operation->isCancelled()) continue;
      expected.emplace_back(std::static_pointer_cast<QVHTTPOperation>(operation)->userInfo());
    }
    EXPECT_EQ(found, expected) << "change " << &change - changes;
  }
  const auto replaced = manager->operationQueue();
  manager->setOperationQueue(suspendedQueue());
  std::filesystem::remove(path().view());
  replaced->addOperation(std::make_shared<QVHTTPOperation>());
  EXPECT_EQ(fileCount(), 0) << "what becomes of a queue that was replaced is not saved";
}

TEST_F(QVKeptHitsTest, HoldsWhatWaitsWhileHitsComeAndGo) {
  const auto manager = QVNetworkManager::sharedInstance();
  std::mt19937 random(4711);
  std::vector<std::pair<std::weak_ptr<QVPlatform::Operation>, Value>> posted;
  for (unsigned i = 0; i < 600; ++i) {
    if (i % 100 == 0) {
      manager->setOperationQueue(suspendedQueue());
      manager->enableRunningInBackground();
      posted.clear();
    }
    const auto queue = manager->operationQueue();
    const auto first = queue->firstOperationPassingTest([](const auto&) { return true; });
    if (first && random() % 3 == 0) first->cancel();
    if (first && random() % 50 == 0) {
      queue->operationAtIndex(queue->operationCount() / 2)->cancel();
    }
    if (random() % 20 == 0) queue->addOperation(std::make_shared<QVPlatform::Operation>());
    request({{"url", "http://h/"}});
    posted.emplace_back(queue->operationAtIndex(queue->operationCount() - 1), i);
    std::vector<Value> waiting;
    for (const auto& [posting, id] : posted) {
      const auto hit = posting.lock();
      if (hit && !hit->isCancelled()) waiting.push_back(id);
    }
    ASSERT_EQ(idsOf(saved()), waiting) << i;
  }
}

TEST_F(QVKeptHitsTest, HoldsWhatWaitsAfterManyThreadsHaveSavedAtOnce) {
  const auto manager = QVNetworkManager::sharedInstance();
  QVDebug::setDebugLevel(6);
  QVCoreVariables::sharedInstance();  // made by the main thread
  for (int round = 0; round < 20; ++round) {
    manager->setOperationQueue(suspendedQueue());
    manager->enableRunningInBackground();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
        for (int n = 0; n < 10; ++n) request({{"url", "http://h/"}});
      });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_EQ(saved(), queued()) << round;
    ASSERT_EQ(fileCount(), 1);
  }
}

TEST_F(QVKeptHitsTest, LosesAndDoublesNothingWhenMemoryRunsOut) {
  using QVTest::FailingAllocations;
  const auto manager = QVNetworkManager::sharedInstance();
  QVDebug::setDebugLevel(6);
  testing::internal::CaptureStderr();
  const std::vector<Value> hits{hit("http://h/1", 1U), hit("http://h/2", 2U)};
  manager->enableRunningInBackground();
  long count = 0;
  for (bool hasFailed = true; hasFailed; ++count) {
    manager->setOperationQueue(suspendedQueue());
    writeHits(Array(hits));
    {
      const FailingAllocations memory(count);
      manager->restoreStockedHit();
      hasFailed = memory.hasFailed();
    }
    std::vector<Value> found = queued();
    manager->setOperationQueue(suspendedQueue());
    manager->restoreStockedHit();
    for (const Value& more : queued()) found.push_back(more);
    ASSERT_EQ(found, hits) << count;
    ASSERT_EQ(fileCount(), 0) << count;
  }
  EXPECT_TRUE(count > 50 || !FailingAllocations::kIsPossible);
  manager->setOperationQueue(suspendedQueue());
  for (const Value& hit : hits) manager->queueRequestWithData(hit.dictionary());
  count = 0;
  for (bool hasFailed = true; hasFailed; ++count) {
    writeHits({});
    {
      const FailingAllocations memory(count);
      manager->saveAllHits();
      hasFailed = memory.hasFailed();
    }
    ASSERT_TRUE(saved().empty() || saved() == hits) << count;
    manager->saveAllHits();
    ASSERT_EQ(saved(), hits) << count;
    ASSERT_EQ(fileCount(), 1) << count;
  }
}

}  // namespace
