#include <glib-unix.h>
#include <sys/epoll.h>

#include "tests/support/CoreTest.h"
#include "tests/support/Test.h"
#include "tests/support/XServer.h"

// The real engine, on a display in memory, asked by applications with each kind of main loop.

#ifdef QV_WEBKIT_LIBRARY
#endif

namespace {

bool isEngineBuilt() {
#ifdef QV_WEBKIT_LIBRARY
  return true;
#else
  return false;
#endif
}

class WebViewTest : public QVTest::CoreTest {
 protected:
  void SetUp() override {
    if (isEngineBuilt() && display.isRunning()) return;
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

/// A main loop as an application may have it; it ends when told to, on its own thread.
struct Loop {
  const char* name;
  std::function<void()> run;
  std::function<void()> stop;
};

Loop mainQueueLoop() {
  return {"MainQueue", [] { MainQueue::mainQueue().run(); }, [] { MainQueue::mainQueue().stop(); }};
}

Loop epollLoop() {
  const auto isStopped = std::make_shared<bool>(false);
  return {"epoll",
          [isStopped] {
            auto& queue = MainQueue::mainQueue();
            const int descriptor = epoll_create1(EPOLL_CLOEXEC);
            epoll_event event{};
            event.events = EPOLLIN;
            epoll_ctl(descriptor, EPOLL_CTL_ADD, queue.fileDescriptor(), &event);
            while (!*isStopped && epoll_wait(descriptor, &event, 1, -1) != 0) queue.drain();
            close(descriptor);
          },
          [isStopped] { *isStopped = true; }};
}

#ifdef QV_WEBKIT_LIBRARY
gboolean drain(gint, GIOCondition, gpointer) {
  MainQueue::mainQueue().drain();
  return G_SOURCE_CONTINUE;
}

Loop glibLoop() {
  const std::shared_ptr<GMainLoop> loop(g_main_loop_new(nullptr, FALSE), g_main_loop_unref);
  return {"GLib",
          [loop] {
            const guint watch =
                g_unix_fd_add(MainQueue::mainQueue().fileDescriptor(), G_IO_IN, drain, nullptr);
            g_main_loop_run(loop.get());
            g_source_remove(watch);
          },
          [loop] { g_main_loop_quit(loop.get()); }};
}
#else
Loop glibLoop() {
  return {"GLib", [] {}, [] {}};
}
#endif

class UserAgentTest : public WebViewTest, public testing::WithParamInterface<Loop (*)()> {};

TEST_P(UserAgentTest, ArrivesOnTheMainThreadWhoeverAskedAndWhateverRunsThere) {
  const auto center = NotificationCenter::defaultCenter();
  QVDebug::useCustomWKProcessPool(true);  // so that it is asked for here, and only here
  const auto variables = QVCoreVariables::sharedInstance();
  const std::function<void()> asking[] = {
      [=] { std::thread([=] { variables->userAgent(); }).detach(); },
      [=] { variables->userAgent(); }};
  for (const auto& ask : asking) {
    const Loop loop = GetParam()();
    std::string userAgent;
    const auto onAvailable = [&](const Notification& heard) {
      EXPECT_TRUE(MainQueue::isMainThread());
      userAgent = heard.userInfo().get(kQVUserInfo_DataKey).string().view();
      loop.stop();
    };
    center->addObserver(this, onAvailable, kQVNotification_UserAgentAvailable);
    variables->clearData();
    ask();
    loop.run();
    center->removeObserver(this);
    EXPECT_EQ(userAgent.rfind("Mozilla/5.0", 0), 0U) << userAgent;
  }
}

INSTANTIATE_TEST_SUITE_P(Loops, UserAgentTest,
                         testing::Values(&mainQueueLoop, &epollLoop, &glibLoop),
                         [](const auto& tested) { return std::string(tested.param().name); });

}  // namespace
