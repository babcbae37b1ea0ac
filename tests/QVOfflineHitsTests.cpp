#include "tests/support/CoreTest.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/Test.h"

namespace {

/// An object for whose archive there is no memory.
class TooLarge : public QVPlatform::Object, public QVPlatform::Coding {
  void encodeWithCoder(QVPlatform::KeyedArchiver&) const override { throw std::bad_alloc(); }
  void initWithCoder(QVPlatform::KeyedUnarchiver&) override {}
};

/// Waiting hits in the file and back. The network is down, so that hits wait.
class QVOfflineHitsTest : public QVTest::CoreTest {
 protected:
  QVOfflineHitsTest() { network->change(0); }

  static void request(const Dictionary& userInfo) { post(kQVNotification_HTTPRequest, userInfo); }
  String path() const {
    return (container.path() / "Library/QVPrivateDocuments/offlineHits").string();
  }
  std::vector<Value> saved() const {
    QVPlatform::KeyedUnarchiver archive(FileManager::contentsAtPath(path(), 1U << 20));
    EXPECT_TRUE(archive.isValid());
    return archive.decodeObjectForKey("offlineHits").array().values();
  }
  void writeFile(const std::string& bytes) const {
    QVLogger::sharedInstance()->getPrivatePathToFile("offlineHits");
    ASSERT_TRUE(FileManager::writeAtomically(bytes, path()));
  }
  void writeHits(const Array& hits) const {
    QVPlatform::KeyedArchiver archiver;
    archiver.encodeObjectForKey(hits, "offlineHits");
    writeFile(std::string(archiver.finishEncoding().view()));
  }
  static std::vector<Value> queued() {
    std::vector<Value> hits;
    for (const auto& operation :
         QVNetworkManager::sharedInstance()->operationQueue()->operations()) {
      hits.emplace_back(std::static_pointer_cast<QVHTTPOperation>(operation)->userInfo());
    }
    return hits;
  }
  static std::vector<Value> idsOf(const std::vector<Value>& hits) {
    std::vector<Value> ids;
    for (const Value& hit : hits) ids.push_back(hit.dictionary().get("ID"));
    return ids;
  }
  static std::vector<Value> queuedIDs() { return idsOf(queued()); }
  static Value hit(const String& url, const Value& id) {
    return Dictionary{{"url", url}, {"ID", id}};
  }
  /// What a listener does at each refused hit, in the middle of a restore.
  static void atRefusal(const std::function<void()>& action) {
    QVPlatform::NotificationCenter::defaultCenter()->addObserver(
        &refusals, [action](const auto&) { action(); }, kQVNotification_HTTPRequestError);
  }
  static inline int refusals = 0;

  /// The body of the hit of that number: any length up to a few pages.
  static std::string bodyOf(std::int64_t number) {
    const std::string text = std::to_string(number);
    return text + std::string(static_cast<std::size_t>(number % 7 * 1500), text.back());
  }
  /// What a process does that is killed: it saves at each change of a queue that grows and shrinks,
  /// and tells of each save.
  static int saveUntilKilled(int progress) {
    QVDebug::setDebugLevel(6);
    QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
    const auto manager = QVNetworkManager::sharedInstance();
    manager->enableRunningInBackground();
    for (std::int64_t number = 0;; ++number) {
      if (manager->operationQueue()->operationCount() > 12) {
        manager->setOperationQueue(suspendedQueue());
        manager->enableRunningInBackground();
      }
      request({{"url", "http://h/"}, {"POSTData", bodyOf(number)}});
      if (write(progress, "", 1) != 1) return 1;
    }
  }
  static std::shared_ptr<QVPlatform::OperationQueue> suspendedQueue() {
    auto queue = std::make_shared<QVPlatform::OperationQueue>();
    queue->setSuspended(true);
    return queue;
  }
  /// Starts a process that saves, and kills it at some moment after that many saves.
  static void killWhileSaving(int saveCount, std::chrono::microseconds delay) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = QVTest::startChild([&] { return saveUntilKilled(ends[1]); });
    char save;
    for (int count = 0; count < saveCount; ++count) ASSERT_EQ(read(ends[0], &save, 1), 1);
    const auto moment = std::chrono::steady_clock::now() + delay;
    while (std::chrono::steady_clock::now() < moment) continue;
    kill(child, SIGKILL);
    QVTest::exitStatusOf(child);
    close(ends[0]);
    close(ends[1]);
  }
  static bool wasQueued(const Value& hit) {
    const Value number = hit.dictionary().get("ID");
    return hit.dictionary().get("POSTData") == Value(bodyOf(number.longLongValue()));
  }
  /// Names beside the file, its own included.
  std::ptrdiff_t fileCount() const {
    std::error_code ignored;  // the directory may not have been made yet
    const auto directory = std::filesystem::path(path().view()).parent_path();
    return std::distance(std::filesystem::directory_iterator(directory, ignored), {});
  }
};

TEST_F(QVOfflineHitsTest, SavesLiveHitsInOrderAndSaysHowMany) {
  const auto manager = QVNetworkManager::sharedInstance();
  for (const char* url : {"http://h/0", "http://h/1", "http://h/2", "http://h/3"}) {
    request({{"url", url}, {"own", Array{1, "x"}}});
  }
  request({{"url", "http://h/c"}, {"HTTPURLResponse", "configuration"}});
  manager->operationQueue()->operationAtIndex(1)->cancel();
  EXPECT_EQ(printed([] { post(kQVNotification_OnBackground); }), "Saving 3 offline Hits\n");
  EXPECT_EQ(manager->operationQueue()->operationCount(), 4U);
  ASSERT_THAT(saved(), SizeIs(3));
  EXPECT_EQ(saved()[1], Value(Dictionary{{"url", "http://h/2"},
                                         {"own", Array{1, "x"}},
                                         {"ID", 2U},
                                         {"RequestType", kQVNotification_HTTPResponse}}));
  EXPECT_EQ(std::filesystem::status(path().view()).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  manager->setOperationQueue(std::make_shared<QVPlatform::OperationQueue>());
  EXPECT_EQ(printed([] { post(kQVNotification_OnBackground); }), "");
  EXPECT_THAT(saved(), IsEmpty());
}

TEST_F(QVOfflineHitsTest, LeavesOutWhatCannotBeSavedAndSavesTheRest) {
  QVNetworkManager::sharedInstance();
  request({{"url", "http://h/"}, {"object", QVLogger::sharedInstance()}});
  request({{"url", "http://h/large"}, {"object", std::make_shared<TooLarge>()}});
  request({{"url", "http://h/"}});
  testing::internal::CaptureStderr();
  EXPECT_EQ(printed([] { post(kQVNotification_OnBackground); }), "Saving 3 offline Hits\n");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              AllOf(HasSubstr("QVLogger"), HasSubstr("hit 1 (http://h/large)")));
  EXPECT_THAT(idsOf(saved()), ElementsAre(Value(0U), Value(2U)));
}

TEST_F(QVOfflineHitsTest, RestoresHitsUnderTheirOldNumbersAtTheStartAndRemovesTheFile) {
  const QVTest::Recorder refused{{kQVNotification_HTTPRequestError}};
  writeHits({Dictionary{{"url", "http://h/7"}, {"ID", 7U}, {"RequestType", "x"}},
             Dictionary{{"url", "bare"}, {"ID", 8U}}, Dictionary{{"url", "http://h/9"}, {"ID", 9U}},
             Dictionary{{"url", "http://h/c"}, {"HTTPURLResponse", "configuration"}}, "no hit"});
  EXPECT_THAT(printed([] { QVNetworkManager::sharedInstance(); }),
              HasSubstr("Restoring 5 offline Hits\n"));
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(7U), Value(9U)));
  EXPECT_EQ(QVNetworkManager::sharedInstance()->consentQueue()->operationCount(), 1U);
  EXPECT_EQ(refused.heard().at(0).userInfo().get("ID"), Value(8U));
  EXPECT_FALSE(FileManager::fileExistsAtPath(path()));
}

TEST_F(QVOfflineHitsTest, LeavesAFileThatCannotBeReadAndRemovesOneThatHoldsNothing) {
  const auto manager = QVNetworkManager::sharedInstance();
  writeHits({hit("http://h/", 1U)});
  const std::string whole = QVTest::contentsOf(path().view());
  std::string damaged = whole;
  damaged[whole.find("http://h/")] = '\xff';
  for (const std::string& bytes :
       {std::string(), std::string("no archive"), std::string("bplist00"), damaged,
        std::string("<plist><array>"), whole.substr(0, whole.size() - 1),
        "<plist><dict><key>$archiver</key><string>NSKeyedArchiver</string><key>$top</key><dict/>"
        "<key>$objects</key><array><string>$null</string></array></dict></plist>" +
            std::string(1U << 20, ' ')}) {
    writeFile(bytes);
    EXPECT_EQ(printed([&] { manager->restoreStockedHit(); }), "");
    EXPECT_EQ(QVTest::contentsOf(path().view()), bytes);
    EXPECT_EQ(fileCount(), 1);
  }
  std::filesystem::resize_file(path().view(), std::uintmax_t{1} << 40);  // sparse
  manager->restoreStockedHit();
  EXPECT_TRUE(FileManager::fileExistsAtPath(path()));
  writeFile(std::string(QVPlatform::KeyedArchiver().finishEncoding().view()));
  EXPECT_EQ(printed([&] { manager->restoreStockedHit(); }), "");
  EXPECT_EQ(fileCount(), 0);
  EXPECT_EQ(manager->operationQueue()->operationCount(), 0U);
}

TEST_F(QVOfflineHitsTest, IsRestoredByOneOfManyProcesses) {
  for (int round = 0; round < 20; ++round) {
    writeHits({hit("http://h/", 1U), hit("http://h/", 2U), hit("http://h/", 3U)});
    std::vector<pid_t> children(3);
    for (pid_t& child : children) {
      child = QVTest::startChild([] {
        QVDebug::setDebugLevel(6);
        QVDebug::useCustomWKProcessPool(true);
        return static_cast<int>(queued().size());
      });
    }
    int count = 0;
    for (const pid_t child : children) count += QVTest::exitStatusOf(child);
    ASSERT_EQ(count, 3) << round;
    ASSERT_EQ(fileCount(), 0) << round;
  }
}

TEST_F(QVOfflineHitsTest, IsRestoredAfterACrashInTheMiddle) {
  writeHits({hit("http://h/", 1U), hit("bare", 2U), hit("http://h/", 3U)});
  EXPECT_EQ(QVTest::runInChild([] {
              QVDebug::useCustomWKProcessPool(true);
              atRefusal([] { _exit(7); });
              QVNetworkManager::sharedInstance();
              return 0;
            }),
            7);
  writeHits({hit("http://h/", 4U)});
  QVNetworkManager::sharedInstance();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(1U), Value(3U), Value(4U)));
  EXPECT_EQ(fileCount(), 0);
}

TEST_F(QVOfflineHitsTest, IsRestoredToTheEndThoughAListenerEndsTheThread) {
  if (!QVTest::kThreadsMayEnd) GTEST_SKIP() << "no thread may end";
  const auto manager = QVNetworkManager::sharedInstance();
  writeHits({hit("http://h/", 1U), hit("bare", 2U), hit("http://h/", 3U)});
  atRefusal([] { pthread_exit(nullptr); });
  std::thread([&] { manager->restoreStockedHit(); }).join();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(1U)));
  EXPECT_THAT(idsOf(saved()), ElementsAre(Value(3U)));
  manager->setOperationQueue(suspendedQueue());
  manager->restoreStockedHit();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(3U)));
}

TEST_F(QVOfflineHitsTest, KeepsWhatIsSavedWhileItRestores) {
  const auto manager = QVNetworkManager::sharedInstance();
  writeHits({hit("http://h/", 1U), hit("bare", 2U), hit("http://h/", 3U)});
  atRefusal([&] { manager->saveAllHits(); });
  manager->restoreStockedHit();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(1U), Value(3U)));
  EXPECT_EQ(saved(), queued());
  EXPECT_EQ(fileCount(), 1);
}

TEST_F(QVOfflineHitsTest, LeavesQueuesAndFileAloneWhenTheKitRunsInTheBackground) {
  const auto manager = QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance()->setEnableSDKInBG(true);
  manager->consentQueue()->setSuspended(false);
  post(kQVNotification_OnBackground);
  EXPECT_FALSE(manager->consentQueue()->isSuspended());
  EXPECT_FALSE(FileManager::fileExistsAtPath(path()));
  writeHits({Dictionary{{"url", "http://h/"}}});
  post(kQVNotification_OnForeground);
  EXPECT_TRUE(FileManager::fileExistsAtPath(path()));
}

TEST_F(QVOfflineHitsTest, SavesAtEachChangeOfTheCountOnceAskedTo) {
  const auto manager = QVNetworkManager::sharedInstance();
  manager->enableRunningInBackground();
  for (std::size_t count = 1; count <= 3; ++count) {
    request({{"url", "http://h/"}});
    EXPECT_THAT(saved(), SizeIs(count));
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
}

TEST_F(QVOfflineHitsTest, HoldsWhatWaitsAfterManyThreadsHaveSavedAtOnce) {
  const auto manager = QVNetworkManager::sharedInstance();
  QVDebug::setDebugLevel(6);
  QVCoreVariables::sharedInstance();  // made by the main thread
  for (int round = 0; round < 20; ++round) {
    manager->setOperationQueue(suspendedQueue());
    manager->enableRunningInBackground();
    std::vector<std::thread> threads;
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

TEST_F(QVOfflineHitsTest, LosesAndDoublesNothingWhenMemoryRunsOut) {
  using QVTest::FailingAllocations;
  const auto manager = QVNetworkManager::sharedInstance();
  QVDebug::setDebugLevel(6);
  testing::internal::CaptureStderr();
  const std::vector<Value> hits{hit("http://h/1", 1U), hit("http://h/2", 2U)};
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

TEST_F(QVOfflineHitsTest, SavesEntirelyOrNotAtAllWhenKilledAndRestoresInTheNextProcess) {
  std::mt19937 random(2001);
  std::vector<Value> left;
  for (int round = 0; round < 200; ++round) {
    // Some are killed while they start and restore what the one before has left.
    const int saveCount = round % 4;
    killWhileSaving(saveCount, std::chrono::microseconds(random() % 4000));
    const bool isThere = FileManager::fileExistsAtPath(path());
    ASSERT_TRUE(isThere || saveCount == 0) << round;
    left = isThere ? saved() : std::vector<Value>();
    ASSERT_THAT(left, Each(Truly(wasQueued))) << round;
    ASSERT_LE(fileCount(), 2) << "left-overs pile up";
  }
  EXPECT_THAT(left, Not(IsEmpty()));
  QVNetworkManager::sharedInstance();
  EXPECT_EQ(queued(), left);
}

TEST_F(QVOfflineHitsTest, SaysWhyItCannotSaveAndGoesOn) {
  std::ofstream(container.path() / "Library") << "a file where a directory should be";
  const auto manager = QVNetworkManager::sharedInstance();
  request({{"url", "http://h/"}});
  testing::internal::CaptureStderr();
  post(kQVNotification_OnBackground);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Not a directory"));
  EXPECT_EQ(manager->operationQueue()->operationCount(), 1U);
}

}  // namespace
