#include <sys/resource.h>

#include "tests/support/HTTPServer.h"
#include "tests/support/OfflineHitsTest.h"
#include "tests/support/Test.h"

namespace {

using QVOfflineHitsTest = OfflineHitsTest;

TEST_F(QVOfflineHitsTest, SavesLiveHitsInOrderAndSaysHowMany) {
  const auto manager = QVNetworkManager::sharedInstance();
  for (const char* url : {"http://h/0", "http://h/1", "http://h/2", "http://h/3"}) {
    request({{"url", url}, {"own", Array{1, "x"}}});
  }
  request({{"url", "http://h/c"}, {"HTTPURLResponse", "configuration"}});
  manager->operationQueue()->operationAtIndex(1)->cancel();
  EXPECT_EQ(printed([] { post(kQVNotification_OnBackground); }), "Saving 3 offline Hits\n");
  EXPECT_EQ(manager->operationQueue()->operationCount(), 4U);
  for (const bool runsInBackground : {true, false}) {
    QVCoreVariables::sharedInstance()->setEnableSDKInBG(runsInBackground);
    EXPECT_EQ(printed([&] { manager->saveAllHits(); }).empty(), runsInBackground);
  }
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
  // Long enough to be written before the others are looked at.
  request({{"url", "http://h/"}, {"text", String(std::string(1U << 19, 'x'))}});
  request({{"url", "http://h/"}, {"object", QVLogger::sharedInstance()}});
  request({{"url", "http://h/large"},
           {"object", std::make_shared<Archived>([] { throw std::bad_alloc(); })}});
  request({{"url", "http://h/"}});
  testing::internal::CaptureStderr();
  EXPECT_EQ(printed([] { post(kQVNotification_OnBackground); }), "Saving 4 offline Hits\n");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              AllOf(HasSubstr("QVLogger"), HasSubstr("hit 2 (http://h/large)")));
  EXPECT_THAT(idsOf(saved()), ElementsAre(Value(0U), Value(1U), Value(3U)));
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

  writeHits({hit("http://h/", 2U)});
  rlimit all{};
  getrlimit(RLIMIT_NOFILE, &all);
  const int next = dup(STDIN_FILENO);
  close(next);
  const rlimit one{static_cast<rlim_t>(next) + 1, all.rlim_max};  // which the file's lock takes
  setrlimit(RLIMIT_NOFILE, &one);
  manager->restoreStockedHit();
  setrlimit(RLIMIT_NOFILE, &all);
  EXPECT_THAT(queued(), IsEmpty());
  manager->restoreStockedHit();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(2U)));
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
  // What an ended restore left may be no archive, and then takes no other file's place.
  putFile(std::filesystem::path(path().view()).parent_path() / ".offlineHits.taken1", "no archive");
  atRefusal([&] { manager->saveAllHits(); });
  manager->restoreStockedHit();
  EXPECT_THAT(queuedIDs(), ElementsAre(Value(1U), Value(3U)));
  EXPECT_EQ(saved(), queued());
  EXPECT_EQ(fileCount(), 2);
}

TEST_F(QVOfflineHitsTest, LeavesQueuesAndFileAloneWhenTheKitRunsInTheBackground) {
  const auto manager = QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance()->setEnableSDKInBG(true);
  manager->consentQueue()->setSuspended(false);
  post(kQVNotification_OnBackground);
  EXPECT_FALSE(manager->consentQueue()->isSuspended());
  EXPECT_FALSE(FileManager::fileExistsAtPath(path()));
  writeHits({Dictionary{{"url", "http://h/"}}});
  for (const bool runsInBackground : {true, false}) {
    QVCoreVariables::sharedInstance()->setEnableSDKInBG(runsInBackground);
    post(kQVNotification_OnForeground);
    EXPECT_EQ(FileManager::fileExistsAtPath(path()), runsInBackground);
  }
  EXPECT_THAT(queued(), SizeIs(1));
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
  std::latch isSaving(1), isErased(1);
  const auto object = std::make_shared<Archived>([&] {
    isSaving.count_down();
    isErased.wait();
  });
  request({{"url", "http://h.example/"}, {"own", object}});
  request({{"url", "http://h.example/"}, {"HTTPURLResponse", "configuration"}});
  std::thread saver([] { QVNetworkManager::sharedInstance()->saveAllHits(); });
  isSaving.wait();
  EXPECT_TRUE(QVCoreInitialisation::eraseEverything());
  isErased.count_down();
  saver.join();
  expectNothing();
  EXPECT_TRUE(
      QVNetworkManager::sharedInstance()->consentQueue()->operationAtIndex(0)->isCancelled());
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

TEST_F(QVOfflineHitsTest, SaysWhyItCannotSaveAndGoesOn) {
  std::ofstream(container.path() / "Library") << "a file where a directory should be";
  const auto manager = QVNetworkManager::sharedInstance();
  request({{"url", "http://h/"}});
  testing::internal::CaptureStderr();
  post(kQVNotification_OnBackground);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Not a directory"));
  EXPECT_EQ(manager->operationQueue()->operationCount(), 1U);
  EXPECT_FALSE(manager->shutdownWithin(0ms).savedHits);
}

}  // namespace
