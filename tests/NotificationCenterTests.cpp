#include "tests/support/Test.h"

namespace {

class NotificationCenterTest : public ::testing::Test {
 protected:
  NotificationCenter::Callback note(std::string text) {
    return [this, text = std::move(text)](const Notification&) { heard.push_back(text); };
  }
  void post(const char* name) { center.postNotification(Notification(String(name))); }

  NotificationCenter center;
  std::vector<std::string> heard;
  int first = 0;
  int second = 0;
};

TEST_F(NotificationCenterTest, DeliversByExactNameInOrderOfRegistration) {
  center.addObserver(&second, note("second"), "Request: a");
  center.addObserver(&first, note("first"), "Request: a");
  center.addObserver(&first, note("prefix"), "Request: ");
  post("Request: a");
  EXPECT_THAT(heard, ElementsAre("second", "first"));
}

TEST_F(NotificationCenterTest, DeliversTwiceToWhoRegisteredTwice) {
  center.addObserver(&first, note("x"), "n");
  center.addObserver(&first, note("x"), "n");
  post("n");
  EXPECT_THAT(heard, ElementsAre("x", "x"));
}

TEST_F(NotificationCenterTest, TakesANullNameAsNobodys) {
  center.addObserver(&first, note("x"), nullptr);
  center.postNotification(Notification(nullptr));
  EXPECT_THAT(heard, IsEmpty());
}

TEST_F(NotificationCenterTest, FiltersByObject) {
  struct Sender : Object {};
  const auto wanted = std::make_shared<Sender>();
  center.addObserver(&first, note("wanted"), "n", wanted.get());
  center.addObserver(&first, note("any"), "n");
  center.postNotification(Notification("n", std::make_shared<Sender>()));
  center.postNotification(Notification("n", wanted));
  EXPECT_THAT(heard, ElementsAre("any", "wanted", "any"));
}

TEST_F(NotificationCenterTest, RemovesAllRegistrationsOfAnObserverAndNoOthers) {
  center.addObserver(&first, note("first"), "n");
  center.addObserver(&second, note("second"), "n");
  center.addObserver(&first, note("first"), "m");
  center.removeObserver(&first);
  post("n");
  post("m");
  EXPECT_THAT(heard, ElementsAre("second"));
}

TEST_F(NotificationCenterTest, LetsCallbacksPostRegisterAndRemove) {
  center.addObserver(
      &first,
      [this](const Notification&) {
        heard.push_back("outer");
        center.addObserver(&first, note("late"), "n");
        center.removeObserver(&second);
        post("inner");
        center.removeObserver(&first);
      },
      "n");
  center.addObserver(&second, note("removed before its turn"), "n");
  center.addObserver(&first, note("inner"), "inner");
  post("n");
  post("n");
  EXPECT_THAT(heard, ElementsAre("outer", "inner"));
}

TEST_F(NotificationCenterTest, CarriesTheSameUserInfo) {
  const auto userInfo = Dictionary::dictionary();
  center.addObserver(
      &first, [](const Notification& n) { n.userInfo().set("answer", 42); }, "n");
  center.postNotification(Notification("n", nullptr, userInfo));
  EXPECT_EQ(userInfo.get("answer"), Value(42));
}

TEST_F(NotificationCenterTest, CallsEverybodyAndStaysWholeWhenACallbackThrows) {
  for (const int thrown : {1, 2}) {
    center.addObserver(
        &first, [thrown](const Notification&) { throw thrown; }, "n");
  }
  center.addObserver(&second, note("second"), "n");
  try {
    post("n");
    FAIL() << "nothing was thrown";
  } catch (int thrown) {
    EXPECT_EQ(thrown, 1);
  }
  center.removeObserver(&first);  // would wait for ever for a delivery that was not counted out
  post("n");
  EXPECT_THAT(heard, ElementsAre("second", "second"));
}

TEST_F(NotificationCenterTest, WaitsWhenRemovingForACallbackOnAnotherThread) {
  std::latch entered(1);
  std::atomic<bool> hasFinished = false;
  std::atomic<bool> mayFinish = false;
  center.addObserver(
      &first,
      [&](const Notification&) {
        entered.count_down();
        mayFinish.wait(false);
        hasFinished = true;
      },
      "n");
  std::thread poster([this] { post("n"); });
  entered.wait();
  std::thread releaser([&mayFinish] {
    mayFinish = true;
    mayFinish.notify_all();
  });
  center.removeObserver(&first);
  EXPECT_TRUE(hasFinished);
  poster.join();
  releaser.join();
}

// An observer that registers, and is destroyed, again and again while others post. ThreadSanitizer
// and AddressSanitizer are the judges of what the callback touches.
TEST_F(NotificationCenterTest, IsSafeWhileObserversComeAndGoOnOtherThreads) {
  std::atomic<bool> isOver = false;
  std::atomic<int> delivered = 0;
  std::vector<std::thread> posters;
  for (int i = 0; i < 2; ++i) {
    posters.emplace_back([&] {
      while (!isOver) post("n");
    });
  }
  for (int round = 0; round < 500 || delivered == 0; ++round) {
    auto observer = std::make_unique<int>(0);
    std::atomic<int> calls = 0;
    center.addObserver(
        observer.get(),
        [&](const Notification&) {
          ++calls;
          ++delivered;
        },
        "n");
    center.removeObserver(observer.get());
    observer.reset();
  }
  isOver = true;
  for (auto& poster : posters) poster.join();
  EXPECT_GT(delivered, 0);
}

}  // namespace
