#include "tests/support/CoreTest.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/Test.h"

namespace {

/// An object that does something while it is archived: in the middle of a save.
class Archived : public QVPlatform::Object, public QVPlatform::Coding {
 public:
  explicit Archived(std::function<void()> itsAction = [] {}) : action(std::move(itsAction)) {}
  void encodeWithCoder(QVPlatform::KeyedArchiver&) const override { action(); }
  void initWithCoder(QVPlatform::KeyedUnarchiver&) override {}

  const std::function<void()> action;
};

/// Waiting hits in the file and back. The network is down, so that hits wait.
class QVOfflineHitsTest : public QVTest::CoreTest {
 protected:
  QVOfflineHitsTest() {
    network->change(0);
    QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
  }

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

  static std::shared_ptr<QVPlatform::OperationQueue> suspendedQueue() {
    auto queue = std::make_shared<QVPlatform::OperationQueue>();
    queue->setSuspended(true);
    return queue;
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
  manager->setOperationQueue(std::make_shared<QVPlatform::OperationQueue>());
  EXPECT_EQ(printed([] { post(kQVNotification_OnBackground); }), "");
  EXPECT_THAT(saved(), IsEmpty());
}

TEST_F(QVOfflineHitsTest, LeavesOutWhatCannotBeSavedAndSavesTheRest) {
  QVNetworkManager::sharedInstance();
  request({{"url", "http://h/"}, {"object", QVLogger::sharedInstance()}});
  request({{"url", "http://h/large"},
           {"object", std::make_shared<Archived>([] { throw std::bad_alloc(); })}});
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
       {std::string(), std::string("no archive"), damaged, whole.substr(0, whole.size() - 1),
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
        return static_cast<int>(queued().size());
      });
    }
    int count = 0;
    for (const pid_t child : children) count += QVTest::exitStatusOf(child);
    ASSERT_EQ(count, 3) << round;
    ASSERT_EQ(fileCount(), 0) << round;
  }
}

TEST_F(QVOfflineHitsTest, IsRestoredAfterACrashAtAnyMomentOfARestore) {
  writeHits({Dictionary{{"url", "http://h/"}, {"ID", 1U}, {"object", std::make_shared<Archived>()}},
             hit("bare", 2U), hit("http://h/", 3U)});
  const std::function<void()> moments[] = {
      [] { _exit(7); },                                            // between two hits
      [] { QVNetworkManager::sharedInstance()->saveAllHits(); }};  // in the save at the end
  for (const auto& atItsMoment : moments) {
    EXPECT_EQ(QVTest::runInChild([&] {
                QVPlatform::ClassRegistry::registerClass(
                    "Archived", []() -> std::shared_ptr<QVPlatform::Object> {
                      return std::make_shared<Archived>([] { _exit(7); });
                    });
                atRefusal(atItsMoment);
                QVNetworkManager::sharedInstance();
                return 0;
              }),
              7);
  }
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
  manager->saveAllHits();  // which leaves alone what is still to be restored
  manager->setOperationQueue(suspendedQueue());
  manager->restoreStockedHit();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(3U), Value(1U)));
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

TEST_F(QVOfflineHitsTest, SavesAnewWhenHitsWereRestoredInTheMiddleOfASave) {
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

TEST_F(QVOfflineHitsTest, HoldsBothQueuesBeforeItSaves) {
  network->change(QVTest::ScriptedReachability::kReachable);
  const auto manager = QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance();  // made by the main thread
  const auto isHeld = [&] {
    return manager->operationQueue()->isSuspended() && manager->consentQueue()->isSuspended();
  };
  std::atomic<bool> isHeldDuringTransfer = true;
  std::atomic<bool> isHeldDuringSave = false;
  const auto object = std::make_shared<Archived>([&] { isHeldDuringSave = isHeld(); });
  const QVTest::Recorder answers{{kQVNotification_HTTPResponse}};
  const QVTest::HTTPServer server([&](const auto& request, auto& response) {
    isHeldDuringTransfer = isHeld();
    post(kQVNotification_OnBackground);
    QVTest::HTTPServer::answerOK(request, response);
  });
  request({{"url", server.url()}, {"object", object}});
  EXPECT_THAT(answers.waitFor(1), SizeIs(1));
  EXPECT_FALSE(isHeldDuringTransfer);
  EXPECT_TRUE(isHeldDuringSave);
}

TEST_F(QVOfflineHitsTest, SavesAtEachChangeOfTheCountOnceAskedTo) {
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

TEST_F(QVOfflineHitsTest, AreErasedWithAllElseThatTheKitKeepsBeforeAndAfterTheStart) {
  const auto fill = [&] {
    writeHits({hit("http://h.example/saved", 3)});
    const auto directory = std::filesystem::path(path().view()).parent_path();
    std::filesystem::create_directory(directory / "of another module");
    putFile(directory / "of another module/file", "kept");
    putFile(directory / ".offlineHits.tmp0", "half of a f");
    QVUserDefaults::saveInfoToUserDefaultsForLabel("{}", "configuration_privacy");
  };
  const auto expectNothing = [&] {
    EXPECT_EQ(fileCount(), 0);
    for (const String& key : {String("configuration_privacy"), kQVPredefinedVariable_SDKID}) {
      EXPECT_TRUE(QVUserDefaults::retrieveInfoFromUserDefaults(key).isNil()) << key.UTF8String();
    }
  };
  fill();
  EXPECT_TRUE(QVCoreInitialisation::eraseEverything());
  expectNothing();
  EXPECT_FALSE(QVNetworkManager::isInitialised() || QVCoreVariables::isInitialised());

  std::make_shared<QVCoreInitialisation>()->init();
  EXPECT_THAT(queuedIDs(), IsEmpty());
  QVNetworkManager::sharedInstance()->enableRunningInBackground();
  request({{"url", "http://h.example/waiting"}});
  fill();
  EXPECT_TRUE(QVCoreInitialisation::eraseEverything());
  expectNothing();
  EXPECT_TRUE(QVCoreVariables::sharedInstance()->getData(kQVPredefinedVariable_SDKID).isNil());
  request({{"url", "http://h.example/new"}});
  ASSERT_THAT(saved(), SizeIs(1));
  EXPECT_EQ(saved()[0].dictionary().get("url"), Value("http://h.example/new"));
}

TEST_F(QVOfflineHitsTest, SavesWhatHasBecomeOfHitsThatWereSavedBefore) {
  const auto manager = QVNetworkManager::sharedInstance();
  const auto at = [&](std::size_t index) {
    return std::static_pointer_cast<QVHTTPOperation>(
        manager->operationQueue()->operationAtIndex(index));
  };
  Dictionary known;  // the data of the last hit, or what becomes it
  const std::function<void()> changes[] = {
      [] {},
      [&] { at(0)->cancel(); },
      [&] { at(2)->cancel(); },
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
