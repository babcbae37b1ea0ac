#include "tests/support/ChildProcess.h"
#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

namespace {

/// A web engine that answers when, and what, the test says. To be looked at while nobody asks it.
class ScriptedWebEngine : public WebEngine {
 public:
  struct Question {
    std::shared_ptr<ProcessPool> pool;
    std::string script;
    bool isOnMainThread;
    WebView::Completion completion;
  };

  std::shared_ptr<WebView> makeWebView(const WebViewConfiguration& configuration) override {
    if (isThrowing) throw std::runtime_error("no web");
    return canMakeWebViews ? std::make_shared<View>(questions, configuration.processPool) : nullptr;
  }
  /// Answers the last question, as an engine does: later, on the main thread.
  void answer(const Value& result) const { questions->back().completion(result, nullptr); }

  bool canMakeWebViews = true;
  bool isThrowing = false;
  const std::shared_ptr<std::vector<Question>> questions =
      std::make_shared<std::vector<Question>>();

 private:
  class View : public WebView {
   public:
    View(std::shared_ptr<std::vector<Question>> questions, std::shared_ptr<ProcessPool> pool)
        : questions_(std::move(questions)), pool_(std::move(pool)) {}

    void evaluateJavaScript(const String& script, Completion completion) override {
      questions_->push_back(
          {pool_, std::string(script.view()), MainQueue::isMainThread(), std::move(completion)});
    }

   private:
    const std::shared_ptr<std::vector<Question>> questions_;
    const std::shared_ptr<ProcessPool> pool_;
  };
};

constexpr const char* kUUIDPattern = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";

class QVCoreVariablesTest : public CoreTest {
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

  const std::shared_ptr<ScriptedWebEngine> engine = std::make_shared<ScriptedWebEngine>();
  const Recorder recorder{{kQVNotification_UserAgentAvailable}};
};

TEST_F(QVCoreVariablesTest, DerivesTheIdentifiersInOrderAndReadsTheAdvertisingOneBelow14Only) {
  struct Case {
    SystemVersion system;
    String advertising;
    String vendor;
    std::vector<std::string> names;
    bool isNormalized;
  };
  const String real = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  const String limited = "00000000-0000-0000-0000-000000000000";
  const std::string idfa = "#QV_IDFA#", idfv = "#QV_IDFV#";
  const std::string sdk = "#QV_SDK_ID#", normalized = "#QV_NORMALIZED_ID#";
  const Case cases[] = {
      {{13, 9, 9}, real, "VENDOR", {idfa, idfv, sdk, normalized}, true},
      {{13, 0, 0}, limited, "VENDOR", {idfa, idfv, sdk, normalized}, false},
      {{9, 0, 0}, "", "VENDOR", {idfv, sdk, normalized}, false},
      {{13, 9, 9}, nullptr, nullptr, {sdk, normalized}, false},
      {{14, 0, 0}, real, "VENDOR", {idfv, sdk, normalized}, false},
      {{15, 1, 0}, real, nullptr, {sdk, normalized}, false},
  };
  for (const Case& device : cases) {
    Device::setSystemVersion(device.system);
    Device::setAdvertisingIdentifierProvider([&] { return device.advertising; });
    Device::setIdentifierForVendorProvider([&] { return device.vendor; });
    const auto variables = QVCoreVariables::sharedInstance()->reinit();
    EXPECT_EQ(names(*variables), device.names);
    const bool isStored = device.names.front() == idfa;
    EXPECT_EQ(variables->getData(kQVPredefinedVariable_IDFA),
              isStored ? Value(device.advertising) : Value());
    EXPECT_EQ(variables->getData(kQVPredefinedVariable_IDFV), Value(device.vendor));
    EXPECT_EQ(variables->getData(kQVPredefinedVariable_NormalizedID),
              device.isNormalized ? Value(device.advertising)
                                  : variables->getData(kQVPredefinedVariable_SDKID));
  }
}

TEST_F(QVCoreVariablesTest, KeepsTheInstallationsIdentifierInTheUserDefaults) {
  // Another process of the application leaves an empty one, unseen by this one.
  EXPECT_TRUE(QVUserDefaults::retrieveInfoFromUserDefaults("#QV_SDK_ID#").isNil());
  EXPECT_EQ(ChildProcess([]() -> std::string {
              QVUserDefaults::saveInfoToUserDefaultsForLabel("", kQVPredefinedVariable_SDKID);
              return "";
            }).text(),
            "");
  EXPECT_FALSE(std::filesystem::is_empty(container.path() / "Library/Preferences"));
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

TEST_F(QVCoreVariablesTest, AgreesOnOneIdentifierWithProcessesThatStartAtTheSameMoment) {
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds; ++round) {
    const TemporaryDirectory directory;
    Application::setContainerDirectory(directory.path().string());
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    const auto body = [&start] {
      close(start[1]);
      char nothing = 0;
      [[maybe_unused]] const ssize_t end = read(start[0], &nothing, 1);
      return identifierOfThisProcess();
    };
    std::vector<std::unique_ptr<ChildProcess>> children;
    children.reserve(2);
    for (int i = 0; i < 2; ++i) children.push_back(std::make_unique<ChildProcess>(body));
    close(start[1]);  // both of them read the end of the pipe now
    std::vector<std::string> identifiers;
    identifiers.reserve(children.size());
    for (const auto& child : children) identifiers.push_back(child->text());
    close(start[0]);
    EXPECT_THAT(identifiers.front(), testing::MatchesRegex(kUUIDPattern));
    EXPECT_THAT(identifiers, testing::Each(identifiers.front()));
    EXPECT_EQ(ChildProcess(identifierOfThisProcess).text(), identifiers.front());
  }
}

TEST_F(QVCoreVariablesTest, HoldsWhatOthersAddUntilItBeginsAnew) {
  const auto variables = QVCoreVariables::sharedInstance();
  const auto webView = variables->uaWebView();
  const auto pool = std::make_shared<ProcessPool>();
  variables->setPool(pool);
  variables->setEnableSDKInBG(true);
  const auto other = std::make_shared<QVDynamicStore>()->init();
  other->addDataWithValue("#OTHER#", 2);
  variables->addData(other);
  variables->addDataWithValue("#ADDED#", 1);
  EXPECT_EQ(variables->removeData("#ADDED#"), Value(1));
  EXPECT_EQ(variables->getData("#OTHER#"), Value(2));
  const std::vector<std::string> own{"#QV_IDFV#", "#QV_SDK_ID#", "#QV_NORMALIZED_ID#"};
  EXPECT_THAT(names(*variables), ElementsAre(own[0], own[1], own[2], "#OTHER#"));
  QVDebug::useCustomWKProcessPool(true);
  EXPECT_EQ(variables->reinit(), variables);
  EXPECT_EQ(names(*variables), own);
  EXPECT_FALSE(variables->enableSDKInBG());
  EXPECT_EQ(variables->pool(), pool);
  EXPECT_EQ(variables->uaWebView(), webView);
  EXPECT_NE(webView, nullptr);
}

TEST_F(QVCoreVariablesTest, AsksAWebViewUntilItAnswersAndAnnouncesWhatIsKnown) {
  engine->canMakeWebViews = false;
  const auto variables = QVCoreVariables::sharedInstance();
  const auto agent = [&] { return variables->getData(kQVPredefinedVariable_UserAgent); };
  std::vector<Value> stored;  // at each announcement
  const auto onAvailable = [&](const auto&) { stored.push_back(agent()); };
  NotificationCenter::defaultCenter()->addObserver(this, onAvailable,
                                                   kQVNotification_UserAgentAvailable);
  const auto pool = std::make_shared<ProcessPool>();
  const auto askElsewhere = [&] { variables->initUserAgentWithProcessPool(nullptr); };
  const struct {
    const char* what;
    std::function<void()> action;
    std::size_t questions;
    std::size_t announcements;
    Value known;
  } steps[] = {
      {"no web view at the start", [&] { engine->canMakeWebViews = true; }, 0, 0, nullptr},
      {"asked again", [&] { variables->userAgent(); }, 1, 0, nullptr},
      {"no answer", [&] { engine->answer(nullptr); }, 1, 0, nullptr},
      {"asked once more", [&] { variables->userAgent(); }, 2, 0, nullptr},
      {"an answer", [&] { engine->answer("Agent/1"); }, 2, 1, "Agent/1"},
      {"known", [&] { variables->userAgent(); }, 2, 2, "Agent/1"},
      {"known, elsewhere", [&] { std::thread(askElsewhere).join(); }, 2, 3, "Agent/1"},
      {"begun anew", [&] { variables->reinit(); }, 3, 3, nullptr},
      {"told to wait for the pool", [&] { QVDebug::useCustomWKProcessPool(true); }, 3, 3, nullptr},
      {"begun anew", [&] { variables->reinit(); }, 3, 3, nullptr},
      {"a pool", [&] { variables->initUserAgentWithProcessPool(pool); }, 4, 3, nullptr},
      {"an answer", [&] { engine->answer("Agent/2"); }, 4, 4, "Agent/2"},
      {"forgotten", [&] { variables->clearData(); }, 4, 4, nullptr},
      {"no pool", [&] { variables->initUserAgentWithProcessPool(nullptr); }, 5, 4, nullptr},
  };
  for (const auto& step : steps) {
    step.action();
    EXPECT_EQ(engine->questions->size(), step.questions) << step.what;
    EXPECT_EQ(recorder.heard().size(), step.announcements) << step.what;
    EXPECT_EQ(agent(), step.known) << step.what;
  }
  EXPECT_THAT(stored,
              ElementsAre(Value("Agent/1"), Value("Agent/1"), Value("Agent/1"), Value("Agent/2")));
  EXPECT_EQ(recorder.heard().back().object(), variables);
  EXPECT_EQ(Value(recorder.heard().back().userInfo()), Value(Dictionary{{"data", "Agent/2"}}));
  std::vector<std::shared_ptr<ProcessPool>> pools;
  for (const auto& question : *engine->questions) {
    EXPECT_EQ(question.script, "navigator.userAgent");
    pools.push_back(question.pool);
  }
  EXPECT_THAT(pools, ElementsAre(nullptr, nullptr, nullptr, pool, nullptr));
}

TEST_F(QVCoreVariablesTest, LetsHitsWaitForTheNetworkWhenTheAwaitedUserAgentCameFirst) {
  network->change(0);
  const auto manager = QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance();
  manager->waitForUserAgent();
  engine->answer("Agent/1");
  EXPECT_FALSE(manager->shouldWaitForUserAgent());
  EXPECT_TRUE(manager->operationQueue()->isSuspended());
  network->change(ScriptedReachability::kReachable);
  EXPECT_TRUE(runMainQueueUntil([&] { return !manager->operationQueue()->isSuspended(); }));
}

TEST_F(QVCoreVariablesTest, WaitsOnAnotherThreadForTheScriptsStartWhileTheMainOneHasTheInstance) {
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
  EXPECT_EQ(started.get(), variables);  // though there is no answer yet
  EXPECT_TRUE(engine->questions->back().isOnMainThread);
  EXPECT_THAT(recorder.heard(), IsEmpty());
}

TEST_F(QVCoreVariablesTest, StopsWhatAnEngineThrows) {
  engine->isThrowing = true;
  EXPECT_NO_THROW(QVCoreVariables::sharedInstance());
}

}  // namespace
