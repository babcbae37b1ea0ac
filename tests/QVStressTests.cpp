#include "tests/support/HTTPServer.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* text = std::getenv(variable);
  return text ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

/// What must hold of the hits whatever else happens: each is answered, those of one thread are sent
/// in the order of their posts, and a hit keeps the number that no other one has.
class Ledger {
 public:
  static constexpr int kPosters = 3;
  using Hit = std::pair<int, int>;  // poster, and which of its hits

  void receive(const std::string& path, const std::string& body) {
    const std::lock_guard lock(mutex_);
    const Hit hit = hitOf(path);
    if (!received_.insert(hit).second) return;  // sent once more after it was saved
    EXPECT_EQ(hit.second, next_.at(static_cast<std::size_t>(hit.first))++) << "by " << hit.first;
    std::string rest = body.starts_with("(null)") ? body.substr(6) : body;
    while (rest.starts_with("&k=v")) rest.erase(0, 4);
    EXPECT_EQ(rest, "");
  }
  void answer(const Notification& heard) {
    const std::lock_guard lock(mutex_);
    const auto url = heard.userInfo().get("url").string();
    if (url.view().find("/hit/") == std::string_view::npos) return;  // a configuration
    const Hit hit = hitOf(std::string(url.view()));
    const auto id = static_cast<std::int64_t>(heard.userInfo().get("ID").longLongValue());
    EXPECT_EQ(numbers_.emplace(hit, id).first->second, id);
    EXPECT_EQ(hits_.emplace(id, hit).first->second, hit) << "have number " << id;
  }
  std::size_t answered() const {
    const std::lock_guard lock(mutex_);
    return numbers_.size();
  }
  std::size_t received() const {
    const std::lock_guard lock(mutex_);
    return received_.size();
  }

 private:
  static Hit hitOf(const std::string& url) {
    Hit hit;
    EXPECT_EQ(std::sscanf(url.c_str() + url.find("/hit/"), "/hit/%d/%d", &hit.first, &hit.second),
              2);
    return hit;
  }

  mutable std::mutex mutex_;
  std::set<Hit> received_;
  std::array<int, kPosters> next_{};
  std::map<Hit, std::int64_t> numbers_;
  std::map<std::int64_t, Hit> hits_;
};

/// Hears what is posted for a while; nothing when it is gone.
struct Passer : IQVEventListenerDelegate {
  explicit Passer(const String& name) {
    listener->setParent(this);
    listener->listen(name);
  }
  ~Passer() override {
    listener->setParent(nullptr);
    isGone = true;
  }
  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>&) override {}
  void onNotificationReceived(const Notification&) override { EXPECT_FALSE(isGone); }

  std::atomic<bool> isGone{false};
  std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();
};

class QVStressTest : public NetworkManagerTest {
 protected:
  static constexpr int kHits = 50;  // that each thread posts in a round

  /// One thing at random that hosts and modules do, none of which may lose a hit.
  void disturb(std::mt19937& random) {
    const String events[] = {kQVNotification_InternetUp,        kQVNotification_InternetDown,
                             kQVNotification_OnBackground,      kQVNotification_OnForeground,
                             kQVNotification_StartingTheSDK,    kQVNotification_StoppingTheSDK,
                             kQVNotification_UserAgentAvailable};
    const auto limit = static_cast<std::int32_t>(100000 + random() % 9);
    const std::function<void()> deeds[] = {
        [&] { network->change(0); },
        [&] { network->change(ScriptedReachability::kReachable); },
        [&] { manager->waitForUserAgent(); },
        [&] { manager->updateQueueWithCategories("&k=v"); },
        [&] {
          manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(9, limit);
        },
        [&] { QVLogger::sharedInstance()->reinit(); },
        [&] { QVCoreVariables::sharedInstance()->reinit(); },
    };
    const auto choice = random() % (std::size(events) + std::size(deeds));
    if (choice < std::size(deeds)) return deeds[choice]();
    post(events[choice - std::size(deeds)], {{"data", "x"}});
  }
  /// Listeners that go while others post, texts that one thread alone writes, configurations.
  void comeAndGo(std::mt19937& random, int turn) {
    const Passer passer(random() % 2 ? kQVNotification_HTTPRequest : kQVNotification_HTTPResponse);
    QVUserDefaults::saveInfoToUserDefaultsForLabel(String(std::to_string(turn)), "own");
    EXPECT_EQ(QVUserDefaults::retrieveInfoFromUserDefaults("own"), Value(std::to_string(turn)));
    if (turn % 8 == 0) {
      QVConfigurationFileFactory::sharedInstance()->addConfigurationFileWithVersionPathForURL(
          "c", "version", server.url("/configuration"));
    }
  }
  void openAllGates() const {
    network->change(ScriptedReachability::kReachable);
    for (const auto& name : {kQVNotification_UserAgentAvailable, kQVNotification_StartingTheSDK,
                             kQVNotification_OnForeground, kQVNotification_InternetUp}) {
      post(name);
    }
  }
  void postHits(int poster, int round) const {
    for (int i = 0; i < kHits; ++i) {
      request(
          {{"url",
            server.url(stringWithFormat("/hit/%@/%@", {poster, round * kHits + i}).UTF8String())}});
    }
  }
  void runRound(int round, unsigned seed) {
    std::atomic<int> posting{Ledger::kPosters};
    std::vector<std::jthread> threads;
    for (int poster = 0; poster < Ledger::kPosters; ++poster) {
      threads.emplace_back([&, poster] {
        postHits(poster, round);
        --posting;
      });
    }
    for (unsigned i = 1; i <= 3; ++i) {
      threads.emplace_back([&, i] {
        std::mt19937 random(seed + i);
        for (int turn = 0; turn < 8 || (turn < kHits && posting > 0); ++turn) {
          i == 1 ? comeAndGo(random, turn) : disturb(random);
        }
      });
    }
    while (posting > 0) MainQueue::mainQueue().drain();
  }
  /// Hits are held by a network that is down, and by nothing else once all gates are open.
  void expectAllToBeAnsweredOnceTheyMay(std::size_t count) {
    MainQueue::mainQueue().drain();
    openAllGates();
    ASSERT_TRUE(runMainQueueUntil([&] { return ledger.answered() == count; }))
        << ledger.answered() << " of " << count;
    ASSERT_TRUE(waitUntil([&] { return manager->operationQueue()->operationCount() == 0; }));
    EXPECT_EQ(manager->operationQueue()->isSuspended(), false);
  }

  Ledger ledger;
  std::atomic<unsigned> received{0};
  HTTPServer server{[this](const auto& asked, auto& response) {
    if (asked.path.starts_with("/hit/")) ledger.receive(asked.path, asked.body);
    const unsigned turn = ++received % 7;
    response.status = turn == 1 ? 500 : turn == 2 ? 404 : turn == 3 ? 401 : 200;
    response.set_content(turn == 4 ? "\xFF" : "{\"version\":1}", "text/plain");
  }};
};

/// QV_STRESS_SECONDS and QV_STRESS_SEED have it last longer, and do again what it did.
TEST_F(QVStressTest, AnswersEachHitInOrderWhateverElseHappens) {
  const unsigned seed = numberFrom("QV_STRESS_SEED", std::random_device()());
  const std::chrono::seconds time(numberFrom("QV_STRESS_SECONDS", 5));
  std::cout << "QV_STRESS_SEED=" << seed << std::endl;
  manager = QVNetworkManager::sharedInstance();
  for (const auto& name : {kQVNotification_HTTPResponse, kQVNotification_HTTPRequestError}) {
    NotificationCenter::defaultCenter()->addObserver(
        this, [this](const Notification& heard) { ledger.answer(heard); }, name);
  }
  const auto end = std::chrono::steady_clock::now() + time;
  for (int round = 0; round == 0 || std::chrono::steady_clock::now() < end; ++round) {
    SCOPED_TRACE(round);
    runRound(round, seed + 10U * static_cast<unsigned>(round));
    expectAllToBeAnsweredOnceTheyMay(
        static_cast<std::size_t>((round + 1) * kHits * Ledger::kPosters));
    ASSERT_FALSE(HasFailure());
  }
  NotificationCenter::defaultCenter()->removeObserver(this);
}

}  // namespace
