#include <sys/prctl.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"

// The real engine, on a display in memory.

namespace {

/// A display for this process, in memory: an X server that lives as long as this object.
class XServer {
 public:
  XServer() {
    if (isRunning()) setenv("DISPLAY", (":" + number_).c_str(), 1);
  }
  /// The server, told to end, removes its lock and its socket.
  ~XServer() {
    unsetenv("DISPLAY");
    process_.end(SIGTERM);
  }

  bool isRunning() const { return !number_.empty(); }

 private:
  static int run(int output) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    fcntl(output, F_SETFD, 0);
    const std::string descriptor = std::to_string(output);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-nolisten", "tcp", nullptr);
    return 127;
  }

  ChildProcess process_{run};
  const std::string number_ = process_.firstLine();
};

class WebViewTest : public CoreTest {
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

  const XServer display;
};

TEST_F(WebViewTest, EvaluatesScripts) {
  const std::pair<const char*, Value> cases[] = {
      {"'a\\u00e4\\u0000b'", String(std::string_view("aä\0b", 5))},
      {"6 * 7", 42.0},
      {"1 < 2", true},
      {"({})", nullptr},
      {"throw new Error('no')", nullptr}};
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
