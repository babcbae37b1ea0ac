#include "tests/support/ScriptedReachability.h"
#include "tests/support/Test.h"

namespace {

class QVReachabilityTest : public testing::Test {
 protected:
  QVReachabilityTest() {
    NetworkReachability::setSource(source_);
    NotificationCenter::defaultCenter()->addObserver(
        this,
        [this](const Notification& notification) {
          note("notification");
          lastNotification_ = std::make_unique<Notification>(notification);
        },
        kQVReachabilityChangedNotification);
  }
  ~QVReachabilityTest() override {
    NotificationCenter::defaultCenter()->removeObserver(this);
    NetworkReachability::setSource(nullptr);
  }

  /// Writes in the journal what happened, on whatever thread.
  void note(const std::string& event) {
    const std::lock_guard lock(mutex_);
    journal_.push_back(event + (MainQueue::isMainThread() ? " (main)" : " (queue)"));
  }
  std::vector<std::string> events() const {
    const std::lock_guard lock(mutex_);
    return journal_;
  }

  /// A monitor whose blocks write in the journal.
  std::shared_ptr<QVReachability> makeMonitor() {
    auto monitor = QVReachability::reachabilityForInternetConnection();
    monitor->setReachableBlock([this](const auto&) { note("reachable"); });
    monitor->setUnreachableBlock([this](const auto&) { note("unreachable"); });
    return monitor;
  }

  /// The answers to isReachable, viaWWAN, viaWiFi, connectionRequired, onDemand and intervention.
  static std::string answersOf(const QVReachability& monitor) {
    std::string answers;
    for (const bool answer : {monitor.isReachable(), monitor.isReachableViaWWAN(),
                              monitor.isReachableViaWiFi(), monitor.isConnectionRequired(),
                              monitor.isConnectionOnDemand(), monitor.isInterventionRequired()}) {
      answers += answer ? 'y' : '-';
    }
    return answers;
  }

  /// Runs the main queue until as many events are in the journal; what is delivered in vain would
  /// come before the last of them.
  std::vector<std::string> eventsWhenThereAre(std::size_t count) {
    while (events().size() < count) {
      pollfd descriptor{MainQueue::mainQueue().fileDescriptor(), POLLIN, 0};
      if (poll(&descriptor, 1, 10'000) <= 0) break;
      MainQueue::mainQueue().drain();
    }
    return events();
  }

  /// A call that just ended on the queue may hold the monitor a moment longer.
  bool isSoonGone(const std::weak_ptr<QVReachability>& monitor) {
    lastNotification_.reset();
    return waitUntil([&] { return monitor.expired(); });
  }

  const std::shared_ptr<ScriptedReachability> source_ = std::make_shared<ScriptedReachability>(0);
  mutable std::mutex mutex_;
  std::vector<std::string> journal_;
  std::unique_ptr<Notification> lastNotification_;
};

TEST_F(QVReachabilityTest, AnswersFromTheFlags) {
  struct Row {
    QVReachability::Flags flags;
    bool countsWWAN;
    const char* answers;
    int status;
    const char* string;
    const char* flagsString;
  };
  const char* const kUnavailable = "Connection Type Unavailable";
  const std::array rows{
      Row{0x0, true, "------", 0, kUnavailable, "-- -------"},
      Row{0x0, false, "------", 0, "Cellular", "-- -------"},
      Row{0x2, true, "y-y---", 2, "WiFi", "-R -------"},
      Row{0x2, false, "y-y---", 2, "WiFi", "-R -------"},
      Row{0x3, true, "y-y---", 2, "WiFi", "-R -t-----"},
      Row{0x6, true, "y-yy--", 2, "WiFi", "-R c------"},
      Row{0x7, true, "--yy--", 0, kUnavailable, "-R ct-----"},
      Row{0xe, true, "y-yyy-", 2, "WiFi", "-R c--C---"},
      Row{0x14, true, "---y-y", 0, kUnavailable, "-- c-i----"},
      Row{0x24, true, "---yy-", 0, kUnavailable, "-- c---D--"},
      Row{0x28, true, "------", 0, kUnavailable, "-- ---CD--"},
      Row{0x10, true, "------", 0, kUnavailable, "-- --i----"},
      Row{0x30002, true, "y-y---", 2, "WiFi", "-R -----ld"},
      Row{0x40000, true, "------", 0, kUnavailable, "W- -------"},
      Row{0x40002, true, "yy----", 1, "Cellular", "WR -------"},
      Row{0x40002, false, "-y----", 0, "Cellular", "WR -------"},
      Row{0x40007, true, "-y-y--", 0, kUnavailable, "WR ct-----"},
      Row{0x7003f, true, "-y-yyy", 0, kUnavailable, "WR ctiCDld"},
  };
  const auto monitor = makeMonitor();
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message()
                 << std::hex << row.flags << " counting cellular: " << row.countsWWAN);
    source_->change(row.flags);
    monitor->setReachableOnWWAN(row.countsWWAN);
    EXPECT_EQ(answersOf(*monitor), row.answers);
    EXPECT_EQ(monitor->connectionRequired(), monitor->isConnectionRequired());
    EXPECT_EQ(monitor->isReachableWithFlags(row.flags), monitor->isReachable());
    EXPECT_EQ(monitor->currentReachabilityStatus(), row.status);
    EXPECT_EQ(monitor->currentReachabilityString(), String(row.string));
    EXPECT_EQ(monitor->currentReachabilityFlags(), String(row.flagsString));
    EXPECT_EQ(monitor->reachabilityFlags(), row.flags);
  }
}

TEST_F(QVReachabilityTest, SaysNoToEverythingWhenTheFlagsCannotBeRead) {
  source_->change(0x4007e);
  source_->refuseFlags(EMFILE);
  const auto bare = std::make_shared<QVReachability>();
  for (const auto& monitor : {makeMonitor(), bare}) {
    EXPECT_EQ(answersOf(*monitor), "------");
    EXPECT_EQ(monitor->currentReachabilityStatus(), QVNetworkStatusNotReachable);
    EXPECT_EQ(monitor->reachabilityFlags(), 0U);
  }
  EXPECT_THAT(complaintsOf([&] { EXPECT_FALSE(bare->startNotifier()); }),
              HasSubstr("SCNetworkReachabilitySetCallback() failed: Invalid argument\n"));
}

TEST_F(QVReachabilityTest, AimsAtWhatItWasMadeFor) {
  const auto targetOf = [&](const std::shared_ptr<QVReachability>& monitor) {
    EXPECT_TRUE(monitor->reachableOnWWAN());
    monitor->reachabilityFlags();
    return source_->lastTarget();
  };
  const SocketAddress own{.address = {10, 1, 2, 3}};
  EXPECT_EQ(targetOf(QVReachability::reachabilityForInternetConnection()).address.address,
            (std::array<std::uint8_t, 4>{0, 0, 0, 0}));
  EXPECT_EQ(targetOf(QVReachability::reachabilityForLocalWiFi()).address.address,
            (std::array<std::uint8_t, 4>{169, 254, 0, 0}));
  EXPECT_EQ(targetOf(QVReachability::reachabilityWithAddress(own)).address, own);
  EXPECT_EQ(targetOf(QVReachability::reachabilityWithHostname("a.example")).hostName,
            String("a.example"));
  const auto monitor = QVReachability::reachabilityWithHostName("b.example");
  EXPECT_EQ(targetOf(monitor).hostName, String("b.example"));
  EXPECT_THAT(std::string(monitor->description().view()),
              testing::MatchesRegex("<QVReachability: 0x[0-9a-f]+>"));
}

TEST_F(QVReachabilityTest, IsNotMadeForATargetThatCannotBe) {
  EXPECT_EQ(QVReachability::reachabilityWithHostName(String()), nullptr);
  EXPECT_EQ(QVReachability::reachabilityWithHostname(""), nullptr);
  EXPECT_EQ(QVReachability::reachabilityWithHostname(std::string(254, 'a')), nullptr);
  EXPECT_NE(QVReachability::reachabilityWithHostname(std::string(253, 'a')), nullptr);
  EXPECT_EQ(QVReachability::reachabilityWithAddress({.length = 15}), nullptr);
  EXPECT_EQ(QVReachability::reachabilityWithAddress({.family = 10}), nullptr);
}

TEST_F(QVReachabilityTest, CallsTheBlockOnItsQueueAndThenNotifiesOnTheMainThread) {
  const auto monitor = makeMonitor();
  ASSERT_TRUE(monitor->startNotifier());
  for (int i = 0; i < 1000; ++i) source_->callSubscribers();  // nothing has changed
  source_->change(0x2);
  EXPECT_THAT(eventsWhenThereAre(2), ElementsAre("reachable (queue)", "notification (main)"));
  ASSERT_TRUE(lastNotification_);
  EXPECT_EQ(lastNotification_->object(), monitor);
  EXPECT_TRUE(lastNotification_->userInfo().isNull());
  monitor->setReachableBlock(nullptr);
  source_->change(0x7);
  eventsWhenThereAre(4);
  source_->change(0x2);
  EXPECT_THAT(eventsWhenThereAre(5),
              ElementsAre("reachable (queue)", "notification (main)", "unreachable (queue)",
                          "notification (main)", "notification (main)"));
  monitor->stopNotifier();
}

TEST_F(QVReachabilityTest, JudgesAChangeByTheFlagsThatItBrings) {
  const auto monitor = makeMonitor();
  monitor->reachabilityChanged(0x2);
  EXPECT_THAT(eventsWhenThereAre(2), ElementsAre("reachable (main)", "notification (main)"));
}

TEST_F(QVReachabilityTest, StartsTwiceWithAnotherQueueAndNoSecondDelivery) {
  const auto monitor = makeMonitor();
  ASSERT_TRUE(monitor->startNotifier());
  const auto firstQueue = monitor->reachabilitySerialQueue();
  ASSERT_TRUE(monitor->startNotifier());
  EXPECT_NE(monitor->reachabilitySerialQueue(), firstQueue);
  EXPECT_EQ(source_->numberOfSubscriptions(), 1U);
  source_->change(0x2);
  eventsWhenThereAre(2);
  source_->change(0);
  EXPECT_THAT(eventsWhenThereAre(4), ElementsAre("reachable (queue)", "notification (main)",
                                                 "unreachable (queue)", "notification (main)"));
  const std::weak_ptr<SerialQueue> lastQueue = monitor->reachabilitySerialQueue();
  monitor->stopNotifier();
  EXPECT_TRUE(waitUntil([&] { return lastQueue.expired(); }));
}

TEST_F(QVReachabilityTest, HoldsItselfFromStartToStopAndIsSilentAfterwards) {
  auto monitor = makeMonitor();
  monitor->stopNotifier();
  ASSERT_TRUE(monitor->startNotifier());
  const std::weak_ptr<QVReachability> weakMonitor = monitor;
  EXPECT_EQ(monitor->reachabilityObject(), monitor);
  monitor.reset();
  ASSERT_FALSE(weakMonitor.expired());
  source_->change(0x2);
  eventsWhenThereAre(2);

  weakMonitor.lock()->stopNotifier();
  EXPECT_EQ(source_->numberOfSubscriptions(), 0U);
  EXPECT_TRUE(isSoonGone(weakMonitor));
  source_->change(0);
  const auto other = QVReachability::reachabilityForInternetConnection();
  ASSERT_TRUE(other->startNotifier());
  source_->change(0x2);
  EXPECT_THAT(eventsWhenThereAre(3),
              ElementsAre("reachable (queue)", "notification (main)", "notification (main)"));
  other->stopNotifier();
}

TEST_F(QVReachabilityTest, IsIdleAgainWhenItsTargetCannotBeWatched) {
  const std::tuple<int, int, const char*> cases[] = {
      {EMFILE, 0, "SCNetworkReachabilitySetCallback() failed: Too many open files\n"},
      {0, ENOMEM, "SCNetworkReachabilitySetDispatchQueue() failed: Cannot allocate memory\n"}};
  for (const auto& [subscriptionError, flagsError, message] : cases) {
    const auto monitor = makeMonitor();
    source_->refuseSubscriptions(subscriptionError);
    source_->refuseFlags(flagsError);
    EXPECT_THAT(complaintsOf([&] { EXPECT_FALSE(monitor->startNotifier()); }), HasSubstr(message));
    EXPECT_EQ(monitor->reachabilityObject(), nullptr);
    EXPECT_EQ(monitor->reachabilitySerialQueue(), nullptr);
    EXPECT_EQ(source_->numberOfSubscriptions(), 0U);
    source_->refuseSubscriptions(0);
    source_->refuseFlags(0);
    EXPECT_TRUE(monitor->startNotifier());
    monitor->stopNotifier();
  }
}

TEST_F(QVReachabilityTest, MayBeStoppedAndReleasedByItsOwnBlock) {
  auto monitor = makeMonitor();
  const std::weak_ptr<QVReachability> weakMonitor = monitor;
  monitor->setReachableBlock([this](const std::shared_ptr<QVReachability>& self) {
    self->stopNotifier();
    note("reachable");
  });
  ASSERT_TRUE(monitor->startNotifier());
  monitor.reset();
  source_->change(0x2);
  EXPECT_THAT(eventsWhenThereAre(2), ElementsAre("reachable (queue)", "notification (main)"));
  EXPECT_TRUE(isSoonGone(weakMonitor));
}

TEST_F(QVReachabilityTest, StandsThreadsThatChangeAskStartAndStopAtOnce) {
  std::atomic<bool> isDone = false;
  std::thread network([&] {
    for (unsigned i = 0; !isDone; ++i) source_->change(i % 2 == 0 ? 0x2 : 0);
  });
  const auto blockCalls = std::make_shared<std::atomic<int>>(0);  // a last call may come late
  const auto count = [blockCalls](const std::shared_ptr<QVReachability>& monitor) {
    *blockCalls += monitor->description().isEmpty() ? 0 : 1;
  };
  for (int i = 0; i < 200 || *blockCalls == 0; ++i) {
    const auto monitor = QVReachability::reachabilityForInternetConnection();
    monitor->setReachableBlock(count);
    monitor->setUnreachableBlock(count);
    EXPECT_TRUE(monitor->startNotifier());
    EXPECT_LE(monitor->currentReachabilityStatus(), 2);
    EXPECT_TRUE(i % 3 != 0 || monitor->startNotifier());
    std::this_thread::yield();
    monitor->stopNotifier();
  }
  isDone = true;
  network.join();
  EXPECT_EQ(source_->numberOfSubscriptions(), 0U);
}

}  // namespace
