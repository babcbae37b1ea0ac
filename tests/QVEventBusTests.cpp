#include <malloc.h>

#include "tests/support/Test.h"

namespace {

/// Owns a listener and a sender, as the core's classes do.
class Participant : public IQVEventListenerDelegate, public IQVEventSenderDelegate {
 public:
  Participant() {
    listener->setParent(this);
    sender->setParent(this);
  }
  ~Participant() override {
    if (listener) listener->setParent(nullptr);
  }

  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) override {
    sender->setNotificationCenter(center);
    listener->setNotificationCenter(center);
  }
  void onNotificationReceived(const Notification& notification) override {
    heard.emplace_back(notification.name().view());
    if (whenHeard) whenHeard();
  }

  std::vector<std::string> heard;
  std::function<void()> whenHeard;
  std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();
  std::shared_ptr<QVEventSender> sender = std::make_shared<QVEventSender>()->init();
};

/// Modules that were built elsewhere know the texts. The others are in the tests of what uses them.
TEST(QVEventBus, HasTheTextsThatOtherModulesKnow) {
  const std::pair<String, const char*> texts[] = {
      {kQVNotification_HitSent, "QVNotification: Hit Sent"},
      {kQVNotification_VendorListRequest, "QVNotification: IAB Vendor List Request"},
      {kQVNotification_VendorListResponse, "QVNotification: IAB Vendor List Response"},
      {kQVNotification_UserAgentAvailable, "QVNotification: User Agent Available"},
      {kQVNotification_OnBackground, "QVNotification On Background"},
      {kQVNotification_OnForeground, "QVNotification On Foreground"},
      {kQVNotification_Unknown, "QVNotification: Unknown notification"},
      {kQVNotification_StoppingTheSDK, "QVNotification: Stopping SDK"},
      {kQVNotification_StartingTheSDK, "QVNotification: Starting SDK"},
      {kQVPredefinedVariable_UniqueID, "#QV_UNIQUEID#"},
      {kQVPredefinedVariable_isTrackingEnabled, "#QV_IS_TRACKING_ENABLED#"},
      {kQVPredefinedVariable_LimitUserTrackingEnabled, "#QV_LIMIT_USER_TRACKING_ENABLED#"},
      {kQVUserDefaultsKey_UniqueID, "qv_unique_id"},
      {kQVRegexpDynamicVariable, "#[^#]+#"},
      {kQVRegexpIP, "([0-9]{1,3}[.]){3}[0-9]{1,3}"},
      {kQVRegexpAppleLocale, "[a-z]{2,}_[A-Z]{2,}"},
      {kQVRegexpScreenResolution, "[0-9]{1,4}x[0-9]{1,4}"},
      {kQVRegexpSoftwareVersion, "[0-9]+.[0-9]+(.[0-9]+)*"},
      {kQVRegexpUUID, "[A-F0-9]{8}-[A-F0-9]{4}-[A-F0-9]{4}-[A-F0-9]{4}-[A-F0-9]{12}"},
      {kQVCoreVersion, "4.7.4"},
      {kQVReleaseDate, "08/03/2021"},
      {kQVReleaseTime, "14:48:57"},
      {QVCoreVersionString, "@(#)PROGRAM:QVCore  PROJECT:QVCore-1\n"},
  };
  for (const auto& [constant, text] : texts) EXPECT_EQ(constant, String(text));
  EXPECT_EQ(QVCoreVersionNumber, 1.0);
  EXPECT_EQ(kQVVisitDurationDefaultValue, 1800);
}

TEST(QVEventBus, LeavesRegistrationsOnTheOldCenterWhenItChanges) {
  const auto oldCenter = NotificationCenter::defaultCenter();
  const auto newCenter = std::make_shared<NotificationCenter>();
  Participant participant;
  EXPECT_EQ(participant.sender->parent(), &participant);
  EXPECT_EQ(participant.listener->parent(), &participant);
  participant.listener->onNotification(Notification("handed in"));
  EXPECT_TRUE(participant.sender->send(Notification("nobody listens")));
  participant.listener->listen("old");
  participant.changeNotificationCenter(newCenter);
  participant.listener->listen("new");
  EXPECT_TRUE(participant.sender->send(Notification("new")));
  participant.sender->send(Notification("old"));  // goes to the new center: nobody there
  oldCenter->postNotification(Notification("old"));
  participant.listener->stopListening();  // on the new center only
  newCenter->postNotification(Notification("new"));
  oldCenter->postNotification(Notification("old"));
  EXPECT_THAT(participant.heard, ElementsAre("handed in", "new", "old", "old"));
  participant.listener.reset();  // ends what is left, on every center
  oldCenter->postNotification(Notification("old"));
  EXPECT_THAT(participant.heard, SizeIs(4));
}

TEST(QVEventBus, IsSilentWithoutParentAndWithoutCenter) {
  Participant participant;
  participant.listener->listen("a");
  participant.listener->setParent(nullptr);
  participant.sender->send(Notification("a"));
  participant.changeNotificationCenter(nullptr);
  EXPECT_FALSE(participant.listener->listen("b"));
  participant.listener->stopListening();
  EXPECT_TRUE(participant.sender->send(Notification("b")));
  EXPECT_THAT(participant.heard, IsEmpty());
}

TEST(QVEventBus, LetsAHandlerDestroyItsOwnListener) {
  Participant participant;
  participant.whenHeard = [&] {
    participant.listener->setParent(nullptr);
    participant.listener.reset();
  };
  participant.listener->listen("a");
  participant.listener->listen("a");
  participant.sender->send(Notification("a"));
  EXPECT_THAT(participant.heard, ElementsAre("a"));
}

TEST(QVEventBus, StopsListeningUnderALockThatItsHandlerTakes) {
  Participant participant;
  std::latch entered{1};
  std::mutex mutex;
  participant.whenHeard = [&] {
    entered.count_down();
    const std::lock_guard handler(mutex);
  };
  participant.listener->listen("a");
  std::unique_lock lock(mutex);
  std::thread poster([&] { participant.sender->send(Notification("a")); });
  entered.wait();
  participant.listener->stopListening();
  lock.unlock();
  poster.join();
  participant.sender->send(Notification("a"));
  EXPECT_THAT(participant.heard, ElementsAre("a"));
}

/// Sets itself as the parent in its constructor, when no std::shared_ptr holds it yet.
class EarlyOwner : public Object, public Participant {
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
  events.clear();
  owner = std::make_shared<EarlyOwner>(events);
  owner.reset();  // heard of nothing while somebody held it
  EXPECT_THAT(events, ElementsAre("not held", "end"));
}

TEST(QVEventBus, HandsOverToTheParentThatIsSetDuringADelivery) {
  Participant one, other;
  const auto passesOn = [&](Participant& from, Participant& to) {
    return [&] {
      one.listener->setParent(&to);
      if (from.heard.size() % 10 == 1) from.sender->send(Notification("a"));
    };
  };
  one.whenHeard = passesOn(one, other);
  other.whenHeard = passesOn(other, one);
  one.listener->listen("a");
  for (int i = 0; i < 90; ++i) one.sender->send(Notification("a"));
  EXPECT_THAT(one.heard, SizeIs(50));
  EXPECT_THAT(other.heard, SizeIs(50));
  one.listener->setParent(nullptr);
}

/// Goes while another thread is in its handler.
class LeavingOwner : public IQVEventListenerDelegate {
 public:
  struct Course {
    std::atomic<bool> isEntered, isLeaving, isGone, isLate;
  };

  LeavingOwner(Course& course, std::shared_ptr<QVEventListener> itsListener)
      : listener(std::move(itsListener)), course_(course) {
    listener->setParent(this);
  }
  ~LeavingOwner() override {
    while (!course_.isEntered) std::this_thread::yield();
    course_.isLeaving = true;
    // The end of the listener waits as well.
    listener.use_count() == 1 ? listener.reset() : listener->setParent(nullptr);
    course_.isGone = true;
  }
  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>&) override {}
  void onNotificationReceived(const Notification&) override {
    Course& course = course_;
    course.isEntered = true;
    while (!course.isLeaving) std::this_thread::yield();
    for (int i = 0; i < 20; ++i) std::this_thread::yield();
    if (course.isGone) course.isLate = true;
  }

  std::shared_ptr<QVEventListener> listener;

 private:
  Course& course_;
};

TEST(QVEventBus, LetsNoOwnerGoWhileAnotherThreadIsInItsHandler) {
  std::array<LeavingOwner::Course, 50> courses{};
  std::atomic<bool> isOver = false;
  std::thread poster([&] {
    while (!isOver) NotificationCenter::defaultCenter()->postNotification(Notification("n"));
  });
  std::shared_ptr<QVEventListener> keptLongerThanItsOwner;
  for (std::size_t i = 0; i < courses.size(); ++i) {
    if (i % 3 != 1) {  // every third owner gets the listener of the one before it
      keptLongerThanItsOwner = std::make_shared<QVEventListener>()->init();
      keptLongerThanItsOwner->listen("n");
    }
    auto listener =
        i % 3 == 2 ? std::exchange(keptLongerThanItsOwner, nullptr) : keptLongerThanItsOwner;
    const LeavingOwner owner(courses[i], std::move(listener));
  }
  isOver = true;
  poster.join();
  for (const auto& course : courses) EXPECT_FALSE(course.isLate);
}

TEST(QVEventBus, LeavesNothingOfAListenerOnItsCenters) {
  const auto inUse = [] { return static_cast<std::int64_t>(mallinfo2().uordblks); };
  Participant participant;
  const auto comeAndGo = [&] {
    std::make_shared<QVEventListener>()->init()->listen("n");
    for (auto* parent : {static_cast<Participant*>(nullptr), &participant}) {
      participant.listener->setParent(parent);
    }
  };
  comeAndGo();
  const std::int64_t before = inUse();
  for (int i = 0; i < 1000; ++i) comeAndGo();
  EXPECT_LT(inUse() - before, 100000);
}

}  // namespace
