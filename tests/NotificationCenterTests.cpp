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

TEST_F(NotificationCenterTest, DeliversByExactNameInOrderOfRegistrationOncePerRegistration) {
  EXPECT_TRUE(center.addObserver(&second, note("second"), "Request: a"));
  center.addObserver(&first, note("first"), "Request: a");
  center.addObserver(&first, note("prefix"), "Request: ");
  center.addObserver(&second, note("again"), "Request: a");
  EXPECT_FALSE(center.addObserver(&first, note("null"), nullptr));
  post("Request: a");
  center.postNotification(Notification(nullptr));
  EXPECT_THAT(heard, ElementsAre("second", "first", "again"));
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

// An observer comes and goes, again and again, while others post. No callback runs on when it has
// been removed; the sanitizers judge what else a post touches.
TEST_F(NotificationCenterTest, IsSafeWhileObserversComeAndGoOnOtherThreads) {
  std::atomic<bool> isOver = false;
  std::atomic<int> delivered = 0;
  std::atomic<int> late = 0;
  const auto postOn = [&] {
    while (!isOver) post("n");
  };
  std::thread one(postOn), other(postOn);
  for (int round = 0; round < 500 || delivered == 0; ++round) {
    const auto isRemoved = std::make_unique<std::atomic<bool>>(false);
    center.addObserver(
        isRemoved.get(),
        [&](const Notification&) {
          ++delivered;
          std::this_thread::yield();
          late += *isRemoved;
        },
        "n");
    center.removeObserver(isRemoved.get());
    *isRemoved = true;
  }
  isOver = true;
  one.join();
  other.join();
  EXPECT_EQ(late, 0);
}

}  // namespace
