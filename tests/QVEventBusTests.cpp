#include "tests/support/Test.h"

namespace {

/// Owns a listener and a sender, as the core's classes do.
class Participant : public IQVEventListenerDelegate, public IQVEventSenderDelegate {
 public:
  Participant() {
    listener->setParent(this);
    sender->setParent(this);
  }
  ~Participant() override { listener->setParent(nullptr); }

  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) override {
    sender->setNotificationCenter(center);
    listener->setNotificationCenter(center);
  }
  void onNotificationReceived(const Notification& notification) override {
    heard.emplace_back(notification.name().view());
  }

  std::vector<std::string> heard;
  std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();
  std::shared_ptr<QVEventSender> sender = std::make_shared<QVEventSender>()->init();
};

TEST(QVEventBus, DeliversWhatWasListenedForAndAlwaysSaysYes) {
  Participant participant;
  EXPECT_TRUE(participant.sender->send(Notification("nobody listens")));
  participant.listener->listen("a");
  participant.listener->listen("a");
  EXPECT_TRUE(participant.sender->send(Notification("a")));
  EXPECT_TRUE(participant.sender->send(Notification("ab")));
  EXPECT_THAT(participant.heard, ElementsAre("a", "a"));
  EXPECT_EQ(participant.sender->parent(), &participant);
}

TEST(QVEventBus, DeliversPrefixedNamesOnlyToTheFullName) {
  Participant participant;
  participant.listener->listen(kQVNotification_ConfigurationRequest);
  participant.listener->listen(kQVNotification_ConfigurationRequest + String("abc"));
  participant.sender->send(Notification(kQVNotification_ConfigurationRequest + String("abc")));
  participant.sender->send(Notification(kQVNotification_ConfigurationRequest + String("abcd")));
  EXPECT_THAT(participant.heard, ElementsAre("QVNotification: Privacy Configuration Requestabc"));
}

TEST(QVEventBus, LeavesRegistrationsOnTheOldCenterWhenItChanges) {
  const auto oldCenter = NotificationCenter::defaultCenter();
  const auto newCenter = std::make_shared<NotificationCenter>();
  Participant participant;
  participant.listener->listen("old");
  participant.changeNotificationCenter(newCenter);
  participant.listener->listen("new");
  participant.sender->send(Notification("new"));
  participant.sender->send(Notification("old"));  // goes to the new center: nobody there
  oldCenter->postNotification(Notification("old"));
  participant.listener->stopListening();  // on the new center only
  newCenter->postNotification(Notification("new"));
  oldCenter->postNotification(Notification("old"));
  EXPECT_THAT(participant.heard, ElementsAre("new", "old", "old"));
}

TEST(QVEventBus, IsSilentWithoutParentAndWithoutCenter) {
  Participant participant;
  participant.listener->listen("a");
  participant.listener->setParent(nullptr);
  participant.sender->send(Notification("a"));
  participant.changeNotificationCenter(nullptr);
  participant.listener->listen("b");
  participant.listener->stopListening();
  EXPECT_TRUE(participant.sender->send(Notification("b")));
  EXPECT_THAT(participant.heard, IsEmpty());
}

TEST(QVEventBus, EndsRegistrationsOnEveryCenterWithTheListener) {
  const auto newCenter = std::make_shared<NotificationCenter>();
  auto participant = std::make_unique<Participant>();
  participant->listener->listen("a");
  participant->changeNotificationCenter(newCenter);
  participant->listener->listen("a");
  participant.reset();
  NotificationCenter::defaultCenter()->postNotification(Notification("a"));
  newCenter->postNotification(Notification("a"));
}

TEST(QVEventBus, LetsAHandlerDestroyItsOwnListener) {
  class Ending : public Participant {
   public:
    void onNotificationReceived(const Notification& notification) override {
      Participant::onNotificationReceived(notification);
      listener->setParent(nullptr);
      listener = std::make_shared<QVEventListener>()->init();
    }
  };
  Ending participant;
  participant.listener->listen("a");
  participant.listener->listen("a");
  participant.sender->send(Notification("a"));
  EXPECT_THAT(participant.heard, ElementsAre("a"));
}

TEST(QVEventBus, StopsListeningUnderALockThatItsHandlerTakes) {
  class Locking : public Participant {
   public:
    void onNotificationReceived(const Notification& notification) override {
      entered.count_down();
      const std::lock_guard lock(mutex);
      Participant::onNotificationReceived(notification);
    }
    std::latch entered{1};
    std::mutex mutex;
  };
  Locking participant;
  participant.listener->listen("a");
  std::unique_lock lock(participant.mutex);
  std::thread poster([&] { participant.sender->send(Notification("a")); });
  participant.entered.wait();
  participant.listener->stopListening();
  lock.unlock();
  poster.join();
  participant.sender->send(Notification("a"));
  EXPECT_THAT(participant.heard, ElementsAre("a"));
}

/// Sets itself as the parent in its constructor, when no std::shared_ptr holds it yet.
class EarlyOwner : public QVPlatform::Object, public Participant {
 public:
  explicit EarlyOwner(std::vector<std::string>& itsEvents) : events(itsEvents) {
    listener->listen("a");
    sender->send(Notification("a"));
  }
  ~EarlyOwner() override {
    events.push_back("end");
    sender->send(Notification("a"));
  }
  void onNotificationReceived(const Notification&) override {
    held = nullptr;
    events.push_back(weak_from_this().expired() ? "not held" : "held");
  }
  std::vector<std::string>& events;
  std::shared_ptr<EarlyOwner> held;
};

TEST(QVEventBus, KeepsAnOwnerDuringDeliveryWheneverItBecameTheParent) {
  std::vector<std::string> events;
  auto owner = std::make_shared<EarlyOwner>(events);
  const auto sender = owner->sender;
  owner->held = owner;
  owner.reset();
  sender->send(Notification("a"));  // its handler gives up the last reference but the delivery's
  EXPECT_THAT(events, ElementsAre("not held", "held", "end"));
}

// Owners come and go while another thread posts; the sanitizers judge what a delivery touches.
TEST(QVEventBus, IsSafeWhileOwnersAreDestroyedOnOtherThreads) {
  class Counting : public IQVEventListenerDelegate {
   public:
    explicit Counting(std::atomic<int>& total) : total_(total) { listener->setParent(this); }
    ~Counting() override { listener->setParent(nullptr); }
    void changeNotificationCenter(const std::shared_ptr<NotificationCenter>&) override {}
    void onNotificationReceived(const Notification&) override { total_ += ++own_; }

    std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();

   private:
    std::atomic<int>& total_;
    std::atomic<int> own_{0};
  };
  std::atomic<bool> isOver = false;
  std::atomic<int> delivered = 0;
  std::thread poster([&] {
    while (!isOver) NotificationCenter::defaultCenter()->postNotification(Notification("n"));
  });
  for (int round = 0; round < 500 || delivered == 0; ++round) {
    Counting owner(delivered);
    owner.listener->listen("n");
    const auto keptLongerThanItsOwner = owner.listener;
  }
  isOver = true;
  poster.join();
  EXPECT_GT(delivered, 0);
}

}  // namespace
