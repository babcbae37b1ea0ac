#include "tests/support/ChildProcess.h"
#include "tests/support/CoreTest.h"
#include "tests/support/ScriptedWebEngine.h"
#include "tests/support/Test.h"

namespace {

constexpr const char* kUUIDPattern = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";

class QVCoreVariablesTest : public QVTest::CoreTest {
 protected:
  QVCoreVariablesTest() {
    WebEngine::setEngine(engine);
    Device::setIdentifierForVendorProvider([] { return String("VENDOR"); });
  }

  static std::string text(const QVCoreVariables& variables, const String& name) {
    return std::string(variables.getData(name).string().view());
  }
  static std::vector<std::string> names(const QVCoreVariables& variables) {
    std::vector<std::string> names;
    for (const Value& key : variables.dynamicStore()->orderedKeys().values()) {
      names.emplace_back(key.string().view());
    }
    return names;
  }

  const std::shared_ptr<QVTest::ScriptedWebEngine> engine =
      std::make_shared<QVTest::ScriptedWebEngine>();
  const QVTest::Recorder recorder{{kQVNotification_UserAgentAvailable}};
};

TEST_F(QVCoreVariablesTest, DerivesTheIdentifiersInOrderAndReadsTheAdvertisingOneBelow14Only) {
  struct Case {
    SystemVersion system;
    String advertising;
    bool isStored;
    bool isNormalized;
  };
  const String real = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  const String limited = "00000000-0000-0000-0000-000000000000";
  const Case cases[] = {
      {{13, 9, 9}, real, true, true},   {{13, 0, 0}, limited, true, false},
      {{9, 0, 0}, "", false, false},    {{13, 9, 9}, nullptr, false, false},
      {{14, 0, 0}, real, false, false}, {{15, 1, 0}, real, false, false},
  };
  for (const auto& [system, advertising, isStored, isNormalized] : cases) {
    Device::setSystemVersion(system);
    Device::setAdvertisingIdentifierProvider([given = advertising] { return given; });
    const auto variables = QVCoreVariables::sharedInstance()->reinit();
    std::vector<std::string> expected = {"#QV_IDFV#", "#QV_SDK_ID#", "#QV_NORMALIZED_ID#"};
    if (isStored) expected.insert(expected.begin(), "#QV_IDFA#");
    EXPECT_EQ(names(*variables), expected);
    EXPECT_EQ(variables->getData(kQVPredefinedVariable_IDFA),
              isStored ? Value(advertising) : Value());
    EXPECT_EQ(variables->getData(kQVPredefinedVariable_IDFV), Value("VENDOR"));
    EXPECT_EQ(variables->getData(kQVPredefinedVariable_NormalizedID),
              isNormalized ? Value(advertising) : variables->getData(kQVPredefinedVariable_SDKID));
  }
}

TEST_F(QVCoreVariablesTest, StoresNoIdentifierThatTheDeviceDoesNotHave) {
  Device::setIdentifierForVendorProvider([] { return String(); });
  EXPECT_THAT(names(*QVCoreVariables::sharedInstance()),
              testing::ElementsAre("#QV_SDK_ID#", "#QV_NORMALIZED_ID#"));
}

TEST_F(QVCoreVariablesTest, KeepsTheInstallationsIdentifierInTheUserDefaults) {
  // Another process of the application leaves an empty one, unseen by this one.
  EXPECT_TRUE(QVUserDefaults::retrieveInfoFromUserDefaults("#QV_SDK_ID#").isNil());
  EXPECT_EQ(QVTest::ChildProcess([]() -> std::string {
              QVUserDefaults::saveInfoToUserDefaultsForLabel("", kQVPredefinedVariable_SDKID);
              return "";
            }).text(),
            "");
  const auto variables = QVCoreVariables::sharedInstance();
  const std::string made = text(*variables, kQVPredefinedVariable_SDKID);
  EXPECT_THAT(made, testing::MatchesRegex(kUUIDPattern)) << "an empty one is replaced";
  EXPECT_EQ(QVUserDefaults::retrieveInfoFromUserDefaults("#QV_SDK_ID#"), Value(made.c_str()));
  EXPECT_EQ(text(*variables->reinit(), kQVPredefinedVariable_SDKID), made);

  QVUserDefaults::saveInfoToUserDefaultsForLabel("chosen", kQVPredefinedVariable_SDKID);
  EXPECT_EQ(text(*variables->reinit(), kQVPredefinedVariable_SDKID), "chosen");
}

/// What a process of this application takes for its identifier.
std::string identifierOfThisProcess() {
  QVDebug::useCustomWKProcessPool(true);
  return std::string(
      QVCoreVariables::sharedInstance()->getData(kQVPredefinedVariable_SDKID).string().view());
}

TEST_F(QVCoreVariablesTest, KeepsTheInstallationsIdentifierAcrossARestart) {
  const std::string first = QVTest::ChildProcess(identifierOfThisProcess).text();
  EXPECT_THAT(first, testing::MatchesRegex(kUUIDPattern));
  EXPECT_EQ(QVTest::ChildProcess(identifierOfThisProcess).text(), first);
}

TEST_F(QVCoreVariablesTest, AgreesOnOneIdentifierWithProcessesThatStartAtTheSameMoment) {
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds; ++round) {
    const QVTest::TemporaryDirectory directory;
    QVPlatform::Application::setContainerDirectory(directory.path().string());
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    const auto body = [&start] {
      close(start[1]);
      char nothing = 0;
      [[maybe_unused]] const ssize_t end = read(start[0], &nothing, 1);
      return identifierOfThisProcess();
    };
    std::vector<std::unique_ptr<QVTest::ChildProcess>> children;
    for (int i = 0; i < 4; ++i) children.push_back(std::make_unique<QVTest::ChildProcess>(body));
    close(start[1]);  // all of them read the end of the pipe now
    std::vector<std::string> identifiers;
    for (const auto& child : children) identifiers.push_back(child->text());
    close(start[0]);
    EXPECT_THAT(identifiers.front(), testing::MatchesRegex(kUUIDPattern));
    EXPECT_THAT(identifiers, testing::Each(identifiers.front()));
    EXPECT_EQ(QVTest::ChildProcess(identifierOfThisProcess).text(), identifiers.front());
  }
}

TEST_F(QVCoreVariablesTest, BeginsAnewWithReinit) {
  const auto variables = QVCoreVariables::sharedInstance();
  engine->answer("Agent/1");
  const auto webView = variables->uaWebView();
  const auto pool = std::make_shared<ProcessPool>();
  variables->setPool(pool);
  variables->addDataWithValue("#ADDED#", 1);
  variables->setEnableSDKInBG(true);
  const auto store = variables->dynamicStore();
  QVDebug::useCustomWKProcessPool(true);

  EXPECT_EQ(variables->reinit(), variables);
  EXPECT_NE(variables->dynamicStore(), store);
  EXPECT_THAT(names(*variables),
              testing::ElementsAre("#QV_IDFV#", "#QV_SDK_ID#", "#QV_NORMALIZED_ID#"));
  EXPECT_FALSE(variables->enableSDKInBG());
  EXPECT_EQ(variables->pool(), pool);
  EXPECT_EQ(variables->uaWebView(), webView);
}

TEST_F(QVCoreVariablesTest, ForwardsTheStoresOperations) {
  const auto variables = QVCoreVariables::sharedInstance();
  const auto other = std::make_shared<QVDynamicStore>()->init();
  other->addDataWithValue("#OTHER#", 2);
  variables->addData(other);
  variables->addData(nullptr);
  variables->addDataWithValue("#ADDED#", 1);
  EXPECT_EQ(variables->getData("#OTHER#"), Value(2));
  EXPECT_EQ(variables->removeData("#ADDED#"), Value(1));
  EXPECT_THAT(names(*variables),
              testing::ElementsAre("#QV_IDFV#", "#QV_SDK_ID#", "#QV_NORMALIZED_ID#", "#OTHER#"));
  variables->clearData();
  EXPECT_TRUE(names(*variables).empty());
}

TEST_F(QVCoreVariablesTest, LeavesASecondInstanceBare) {
  QVCoreVariables::sharedInstance();
  const auto second = std::make_shared<QVCoreVariables>()->init();
  EXPECT_EQ(second->dynamicStore(), nullptr);
  EXPECT_EQ(second->senderDelegate(), nullptr);
  second->addDataWithValue("#ADDED#", 1);
  second->clearData();
  EXPECT_TRUE(second->getData("#ADDED#").isNil());
  EXPECT_TRUE(second->removeData("#ADDED#").isNil());
}

TEST_F(QVCoreVariablesTest, AnnouncesTheAnswerOfTheWebView) {
  const auto variables = QVCoreVariables::sharedInstance();
  ASSERT_EQ(engine->questions->size(), 1U);
  EXPECT_EQ(engine->questions->front().script, "navigator.userAgent");
  EXPECT_EQ(engine->questions->front().pool, nullptr);
  EXPECT_TRUE(recorder.heard().empty());

  engine->answer("Agent/1");
  EXPECT_EQ(names(*variables).back(), "#QV_USER_AGENT#");
  ASSERT_EQ(recorder.heard().size(), 1U);
  EXPECT_EQ(recorder.heard()[0].object(), variables);
  EXPECT_EQ(recorder.heard()[0].userInfo().count(), 1U);
  EXPECT_EQ(recorder.heard()[0].userInfo().get("data"), Value("Agent/1"));
  EXPECT_NE(variables->uaWebView(), nullptr);
}

TEST_F(QVCoreVariablesTest, AnnouncesAKnownUserAgentAtOnceWithoutAnotherWebView) {
  const auto variables = QVCoreVariables::sharedInstance();
  engine->answer("Agent/1");
  variables->userAgent();
  std::thread([&] { variables->initUserAgentWithProcessPool(nullptr); }).join();
  EXPECT_EQ(recorder.heard().size(), 3U);
  EXPECT_EQ(recorder.heard()[2].userInfo().get("data"), Value("Agent/1"));
  EXPECT_EQ(engine->questions->size(), 1U);
}

TEST_F(QVCoreVariablesTest, DoesNothingWithoutAnAnswerAndAsksAgainWhenCalledAgain) {
  engine->canMakeWebViews = false;
  const auto variables = QVCoreVariables::sharedInstance();
  EXPECT_EQ(variables->uaWebView(), nullptr);
  engine->canMakeWebViews = true;
  variables->userAgent();
  engine->answer(nullptr);
  EXPECT_TRUE(recorder.heard().empty());
  EXPECT_TRUE(variables->getData(kQVPredefinedVariable_UserAgent).isNil());
  variables->userAgent();
  EXPECT_EQ(engine->questions->size(), 2U);
  engine->answer("Agent/1");
  EXPECT_EQ(recorder.heard().size(), 1U);
}

TEST_F(QVCoreVariablesTest, WaitsForTheApplicationsPoolWhenToldTo) {
  QVDebug::useCustomWKProcessPool(true);
  const auto variables = QVCoreVariables::sharedInstance();
  EXPECT_TRUE(engine->questions->empty());
  const auto pool = std::make_shared<ProcessPool>();
  variables->initUserAgentWithProcessPool(pool);
  ASSERT_EQ(engine->questions->size(), 1U);
  EXPECT_EQ(engine->questions->back().pool, pool);
  EXPECT_EQ(variables->pool(), pool);
  variables->initUserAgentWithProcessPool(nullptr);
  ASSERT_EQ(engine->questions->size(), 2U);
  EXPECT_EQ(engine->questions->back().pool, nullptr);
}

TEST_F(QVCoreVariablesTest, PostsOnTheCenterThatItWasMovedTo) {
  const auto variables = QVCoreVariables::sharedInstance();
  const auto center = std::make_shared<NotificationCenter>();
  int heard = 0;
  center->addObserver(
      this, [&](const QVPlatform::Notification&) { ++heard; }, kQVNotification_UserAgentAvailable);
  variables->changeNotificationCenter(center);
  engine->answer("Agent/1");
  EXPECT_EQ(heard, 1);
  EXPECT_TRUE(recorder.heard().empty());
}

TEST_F(QVCoreVariablesTest, WaitsOnAnotherThreadUntilTheScriptHasStartedAndNoLonger) {
  auto started = std::async(std::launch::async, [] { return QVCoreVariables::sharedInstance(); });
  ASSERT_TRUE(runMainQueueUntil([&] { return !engine->questions->empty(); }));
  const auto variables = started.get();  // though there is no answer yet
  EXPECT_TRUE(engine->questions->back().isOnMainThread);
  EXPECT_TRUE(recorder.heard().empty());
  engine->answer("Agent/1");
  EXPECT_EQ(recorder.heard().size(), 1U);
}

TEST_F(QVCoreVariablesTest, GivesTheMainThreadTheInstanceWhileAnotherThreadWaitsForIt) {
  std::promise<void> isDerived;
  Device::setIdentifierForVendorProvider([&] {
    isDerived.set_value();
    return String("VENDOR");
  });
  auto started = std::async(std::launch::async, [] { return QVCoreVariables::sharedInstance(); });
  isDerived.get_future().wait();
  // The other thread cannot end its initialisation before this one has run the main queue.
  const auto variables = QVCoreVariables::sharedInstance();
  EXPECT_NE(variables->dynamicStore(), nullptr);
  ASSERT_TRUE(runMainQueueUntil([&] { return !engine->questions->empty(); }));
  EXPECT_EQ(started.get(), variables);
}

TEST_F(QVCoreVariablesTest, StopsWhatAnEngineThrows) {
  class Throwing : public WebEngine {
    std::shared_ptr<QVPlatform::WebView> makeWebView(
        const QVPlatform::WebViewConfiguration&) override {
      throw std::runtime_error("no web");
    }
  };
  WebEngine::setEngine(std::make_shared<Throwing>());
  EXPECT_NO_THROW(QVCoreVariables::sharedInstance());
  auto other =
      std::async(std::launch::async, [] { QVCoreVariables::sharedInstance()->userAgent(); });
  EXPECT_TRUE(runMainQueueUntil(
      [&] { return other.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
}

}  // namespace
