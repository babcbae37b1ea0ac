#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"
#include "tests/support/XServer.h"

// The real engine, on a display in memory.

namespace {

class WebViewTest : public QVTest::CoreTest {
 protected:
  void SetUp() override {
#ifdef QV_WEBKIT_LIBRARY
    if (display.isRunning()) return;
#endif
    if (std::getenv("CI")) FAIL() << "WebKitGTK or Xvfb is missing";
    GTEST_SKIP() << "WebKitGTK or Xvfb is not installed";
  }

  static Value resultOf(const char* script) {
    Value answer;
    WebEngine::engine()->makeWebView({})->evaluateJavaScript(
        script, [&answer](const Value& result, const auto&) {
          answer = result;
          MainQueue::mainQueue().stop();
        });
    MainQueue::mainQueue().run();
    return answer;
  }

  const QVTest::XServer display;
};

TEST_F(WebViewTest, EvaluatesScripts) {
  struct Case {
    const char* script;
    Value result;
  };
  const Case cases[] = {{"'a\\u00e4\\u0000b'", String(std::string_view("aä\0b", 5))},
                        {"6 * 7", 42.0},
                        {"1 < 2", true},
                        {"undefined", nullptr},
                        {"null", nullptr},
                        {"({})", nullptr},
                        {"throw new Error('no')", nullptr},
                        {"not a script", nullptr}};
  for (const auto& [script, result] : cases) EXPECT_EQ(resultOf(script), result) << script;
}

TEST_F(WebViewTest, AnswersNilWithoutADisplay) {
  setenv("DISPLAY", ":4711", 1);
  EXPECT_EQ(resultOf("1"), Value());
  unsetenv("DISPLAY");
  EXPECT_EQ(resultOf("1"), Value());
}

TEST_F(WebViewTest, TellsTheUserAgentOnTheMainThreadWhoeverAsked) {
  const auto center = NotificationCenter::defaultCenter();
  QVDebug::useCustomWKProcessPool(true);  // so that it is asked for here, and only here
  const auto variables = QVCoreVariables::sharedInstance();
  const std::function<void()> asking[] = {
      [=] { std::thread([=] { variables->userAgent(); }).detach(); },
      [=] { variables->userAgent(); }};
  std::string userAgent;
  const auto onAvailable = [&](const Notification& heard) {
    EXPECT_TRUE(MainQueue::isMainThread());
    userAgent = heard.userInfo().get(kQVUserInfo_DataKey).string().view();
    MainQueue::mainQueue().stop();
  };
  center->addObserver(this, onAvailable, kQVNotification_UserAgentAvailable);
  for (const auto& ask : asking) {
    userAgent.clear();
    variables->clearData();
    ask();
    MainQueue::mainQueue().run();
    EXPECT_THAT(userAgent, StartsWith("Mozilla/5.0"));
  }
  center->removeObserver(this);
}

}  // namespace
