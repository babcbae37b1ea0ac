#include "tests/support/NetworkManagerTest.h"
#include "tests/support/RawServer.h"
#include "tests/support/Test.h"

namespace {

unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* text = std::getenv(variable);
  return text ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

/// What may happen in a round, and so what may become of its hits.
enum class Kind {
  kPlain,      // each hit is told of once
  kCancelled,  // hits are cancelled, and saved and restored: each is told of, or was cancelled
  kBegunAnew,  // the manager is initialised again, which forgets hits, and begins with number 0
};

/// What is known of the hits of a round. Those of one thread are sent in the order of their posts;
/// each request has a number of its own, and no number is left out. What belongs to an earlier
/// round counts no more.
class Ledger {
 public:
  static constexpr int kPosters = 3;
  static constexpr int kHits = 50;  // that each of them posts
  using Hit = std::pair<int, int>;  // poster, and which of its hits

  void begin(int number, Kind kind, std::int64_t firstID) {
    const std::lock_guard lock(mutex_);
    round_ = Round();
    round_.name = std::to_string(number) + "/";
    round_.kind = kind;
    round_.firstID = firstID;
  }
  std::string pathOf(const std::string& room, int a, int b) const {
    return room + round_.name + std::to_string(a) + "/" + std::to_string(b);
  }

  void receive(const std::string& path, const std::string& body) {
    const std::lock_guard lock(mutex_);
    const auto hit = hitOf(path);
    // It may be sent once more, by one of two rules.
    if (!hit || !round_.received.insert(*hit).second) return;
    const int last =
        std::exchange(round_.last.at(static_cast<std::size_t>(hit->first)), hit->second);
    EXPECT_TRUE(hit->second > last || round_.kind == Kind::kBegunAnew) << "by " << hit->first;
    std::string rest = body.starts_with("(null)") ? body.substr(6) : body;
    while (rest.starts_with("&k=v")) rest.erase(0, 4);
    EXPECT_EQ(rest, "");
  }
  /// That a request was sent, or its outcome.
  void hear(const Notification& heard) {
    const std::lock_guard lock(mutex_);
    const bool isSent = heard.name() == kQVNotification_HTTPRequestSent;
    const Dictionary data = heard.userInfo();
    const auto hit = note(isSent ? data.get("content").dictionary() : data);
    if (hit && !isSent) ++round_.told[*hit];
  }
  void cancel(Operation& operation) {
    const std::lock_guard lock(mutex_);
    const auto hit = note(static_cast<QVHTTPOperation&>(operation).userInfo());
    if (hit) round_.cancelled.insert(*hit);
    operation.cancel();
  }
  std::size_t received() const {
    const std::lock_guard lock(mutex_);
    return round_.received.size();
  }

  /// When no hit waits and none is under way.
  void expectEachToBeAccountedFor(std::int64_t endOfIDs) const {
    const std::lock_guard lock(mutex_);
    if (round_.kind == Kind::kBegunAnew) return;
    std::set<Hit> known = round_.cancelled;
    for (const auto& [hit, times] : round_.told) {
      known.insert(hit);
      EXPECT_TRUE(round_.kind == Kind::kCancelled || times == 1) << "told of " << times << " times";
    }
    EXPECT_EQ(known.size(), std::size_t{kPosters * kHits});
    EXPECT_TRUE(round_.kind == Kind::kCancelled || round_.received.size() == known.size());
    std::int64_t id = round_.firstID;
    std::array<int, kPosters> last = kNone;
    for (const auto& [itsID, hit] : round_.requests) {
      EXPECT_EQ(itsID, id++);
      if (!hit) continue;
      int& before = last.at(static_cast<std::size_t>(hit->first));
      EXPECT_EQ(hit->second, ++before) << "by " << hit->first;
    }
    EXPECT_EQ(id, endOfIDs);
  }

 private:
  static constexpr std::array<int, kPosters> kNone{-1, -1, -1};

  std::optional<Hit> hitOf(const std::string& url) const {
    const std::string beginning = "/hit/" + round_.name;
    const std::size_t place = url.find(beginning);
    Hit hit;
    if (place == url.npos) return std::nullopt;
    std::sscanf(url.c_str() + place + beginning.size(), "%d/%d", &hit.first, &hit.second);
    return hit;
  }
  /// Takes down which number a request of this round has, and returns its hit.
  std::optional<Hit> note(const Dictionary& data) {
    const std::string url(data.get("url").string().view());
    const auto hit = hitOf(url);
    if (!hit && url.find("/configuration/" + round_.name) == url.npos) return hit;
    const std::int64_t id = data.get("ID").longLongValue();
    const bool isOwn = round_.requests.emplace(id, hit).first->second == hit;
    EXPECT_TRUE(isOwn || round_.kind == Kind::kBegunAnew) << "another one has number " << id;
    return hit;
  }

  struct Round {
    std::string name;
    Kind kind = Kind::kPlain;
    std::int64_t firstID = 0;
    std::array<int, kPosters> last = kNone;
    std::set<Hit> received;
    std::map<Hit, int> told;
    std::set<Hit> cancelled;
    std::map<std::int64_t, std::optional<Hit>> requests;  // by their numbers
  };

  mutable std::mutex mutex_;
  Round round_;
};

/// What the gates must be after what the network manager was told, by the rules and not by its
/// code.
struct Gates {
  bool isUp = true, isStarted = true, isAwaited = false;
  bool isElsewhere = false;  // posts where its own listener hears nothing
  bool holdsHits = false, holdsConsent = false;

  void setUp(bool up) {
    isUp = up;
    if (!isElsewhere) up ? hearUp() : holdAll();
  }
  void hearUp() {
    holdsHits = isAwaited;
    holdsConsent = false;
  }
  void holdAll() { holdsHits = holdsConsent = true; }
  void foreground() {
    if (isUp) holdsHits = isAwaited;
    holdsConsent = false;
  }
  void start() {
    holdsHits = isAwaited || !isUp;
    isStarted = true;
  }
  void await() { isAwaited = holdsHits = true; }
  void stop() { isStarted = false; }
  void knowAgent() {
    if (std::exchange(isAwaited, false) && isStarted) holdsHits = !isUp;
  }
  void beginAnew() { *this = {isUp, true, false, false, !isUp, !isUp}; }
};

/// What the server does to a request, whether that ends the connection. The first is a reset, the
/// second the usual one.
const std::pair<std::string, bool> kDeeds[] = {
    {"", true},
    {"HTTP/1.1 200 OK\r\nContent-Length: 13\r\n\r\n{\"version\":1}", false},
    {"", true},
    {"HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\ncut", true},
    {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\ncu", true},
    {"HTTP/1.1 200 OK\r\n\r\nwhole", true},
    {"HTTP/1.1 204 No Content\r\n\r\nHTTP/1.1 200 OK\r\n\r\nlate", false},
    {"HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n\xFFlate", false},
    {"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", false},
    {"HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\n\r\n", false},
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
  QVStressTest() {
    manager = QVNetworkManager::sharedInstance();
    NotificationCenter::defaultCenter()->addObserver(
        this, [this](const Notification&) { hasChanged = true; },
        kQVReachabilityChangedNotification);
    for (const auto& center : {NotificationCenter::defaultCenter(), elsewhere}) {
      for (const auto& name : {kQVNotification_HTTPResponse, kQVNotification_HTTPRequestError,
                               kQVNotification_HTTPRequestSent}) {
        center->addObserver(
            this, [this](const auto& heard) { ledger.hear(heard); }, name);
      }
    }
  }
  ~QVStressTest() override {
    NotificationCenter::defaultCenter()->removeObserver(this);
    elsewhere->removeObserver(this);
  }

  /// Answers most requests, each in its own way.
  void serve(RawServer::Connection& connection) {
    for (;;) {
      const std::string request = connection.readRequest();
      const std::size_t target = request.find(' ') + 1, end = request.find("\r\n\r\n");
      if (end == request.npos) return;
      const std::string path = request.substr(target, request.find(' ', target) - target);
      ledger.receive(path, request.substr(end + 4));
      const auto deed = (std::hash<std::string>{}(path) + seed) % (2 * std::size(kDeeds));
      if (deed == 0) return connection.reset();
      const auto& [answer, isLast] = kDeeds[deed < std::size(kDeeds) ? deed : 1];
      connection.send(answer);
      if (isLast) return;
    }
  }

  /// What hosts and modules do on other threads, none of which may lose a hit: listeners that go
  /// while others post, texts that one thread alone writes, configurations, services that begin
  /// anew.
  void comeAndGo(unsigned thread, std::mt19937& random, int turn) {
    Passer passer(random() % 2 ? kQVNotification_HTTPRequest : kQVNotification_HTTPResponse);
    const String own(std::to_string(thread));
    QVUserDefaults::saveInfoToUserDefaultsForLabel(String(std::to_string(turn)), own);
    EXPECT_EQ(QVUserDefaults::retrieveInfoFromUserDefaults(own), Value(std::to_string(turn)));
    const auto limit = static_cast<std::int32_t>(100000 + random() % 9);
    const auto variables = QVCoreVariables::sharedInstance();
    const auto center = NotificationCenter::defaultCenter();
    const auto factory = QVConfigurationFileFactory::sharedInstance();
    const std::function<void()> deeds[] = {
        [&] { passer.listener->stopListening(); },
        [&] { passer.listener->setNotificationCenter(elsewhere); },
        [&] { manager->updateQueueWithCategories("&k=v"); },
        [&] {
          manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(9, limit);
        },
        [&] { QVLogger::sharedInstance()->reinit(); },
        [&] { variables->reinit(); },
        [&] { variables->changeNotificationCenter(random() % 2 ? elsewhere : center); },
        [&] { factory->reinit(); },
        [&] {
          if (turn % 8 != 0) return;
          const auto path = ledger.pathOf("/configuration/", static_cast<int>(thread), turn);
          factory->addConfigurationFileWithVersionPathForURL(path, "version", server->url(path));
        },
    };
    deeds[random() % std::size(deeds)]();
  }
  void postHits(int poster) const {
    for (int i = 0; i < Ledger::kHits; ++i) {
      request({{"url", server->url(ledger.pathOf("/hit/", poster, i))}});
    }
  }
  void cancelOne(std::mt19937& random) {
    const auto operations = manager->operationQueue()->operations();
    if (!operations.empty()) ledger.cancel(*operations[random() % operations.size()]);
  }

  // What shuts and opens the gates, all on the main thread, with what the model makes of it.

  void setUp(bool up) {
    if (gates.isUp == up) return;
    hasChanged = false;
    network->change(up ? ScriptedReachability::kReachable : 0);
    ASSERT_TRUE(runMainQueueUntil([this] { return hasChanged; }));
    gates.setUp(up);
  }
  void happen(const String& name, void (Gates::*event)()) {
    post(name, {{"data", "x"}});
    (gates.*event)();
  }
  void move(bool isElsewhere) {
    manager->changeNotificationCenter(isElsewhere ? elsewhere
                                                  : NotificationCenter::defaultCenter());
    gates.isElsewhere = isElsewhere;
  }
  void turnSomeGate(Kind kind, std::mt19937& random) {
    const std::pair<String, void (Gates::*)()> events[] = {
        {kQVNotification_InternetUp, &Gates::hearUp},
        {kQVNotification_InternetDown, &Gates::holdAll},
        {kQVNotification_UserAgentAvailable, &Gates::knowAgent},
        {kQVNotification_StoppingTheSDK, &Gates::stop},
        {kQVNotification_OnForeground, &Gates::foreground},
        {kQVNotification_OnBackground, &Gates::holdAll},  // saves, so that hits may go twice
    };
    const std::function<void()> deeds[] = {
        [&] { setUp(!gates.isUp); },
        [&] { move(!gates.isElsewhere); },
        [&] { manager->waitForUserAgent(), gates.await(); },
        [&] { openAllGates(); },
        [&] { cancelOne(random); },
        [&] { manager->reinit(), gates.beginAnew(); },
    };
    if (random() % 2 == 0) {
      const auto& [name, event] = events[random() % (std::size(events) - (kind == Kind::kPlain))];
      happen(name, event);
    } else {
      deeds[random() % (4 + static_cast<unsigned>(kind))]();
    }
  }
  void openAllGates() {
    move(false);
    setUp(true);
    happen(kQVNotification_UserAgentAvailable, &Gates::knowAgent);
    happen(kQVNotification_StartingTheSDK, &Gates::start);
    happen(kQVNotification_InternetUp, &Gates::hearUp);
  }
  /// While hits are held, the server gets no more than the one that is under way.
  void turnAndCheck(Kind kind, std::mt19937& random) {
    const bool wasHeld = gates.holdsHits;
    const std::size_t before = ledger.received();
    turnSomeGate(kind, random);
    EXPECT_EQ(hitsAreHeld(), gates.holdsHits);
    EXPECT_EQ(manager->consentQueue()->isSuspended(), gates.holdsConsent);
    if (!wasHeld) receivedWhenHeld = ledger.received();
    EXPECT_TRUE(!wasHeld || before <= receivedWhenHeld + 1 || kind == Kind::kBegunAnew);
  }

  void runRound(Kind kind) {
    std::atomic<int> posting{Ledger::kPosters};
    std::vector<std::jthread> threads;
    for (int poster = 0; poster < Ledger::kPosters; ++poster) {
      threads.emplace_back([&, poster] {
        postHits(poster);
        --posting;
      });
    }
    for (unsigned i = 1; i <= 2; ++i) {
      threads.emplace_back([&, i] {
        std::mt19937 random(seed + i);
        for (int turn = 0; turn < 8 || (turn < 100 && posting > 0); ++turn) {
          comeAndGo(i, random, turn);
        }
      });
    }
    std::mt19937 random(seed);
    for (int turn = 0; turn < 20 || posting > 0; ++turn) turnAndCheck(kind, random);
  }
  /// Hits are held by what the model says, and by nothing else once all gates are open.
  void expectNothingToBeLeft() {
    openAllGates();
    const auto isIdle = [](const auto& queue) { return queue->operationCount() == 0; };
    ASSERT_TRUE(waitUntil(
        [&] { return isIdle(manager->operationQueue()) && isIdle(manager->consentQueue()); }));
    EXPECT_EQ(hitsAreHeld(), false);
    manager->saveAllHits();  // what was saved in the background must not come back in a later round
  }

  Ledger ledger;
  Gates gates;
  std::size_t receivedWhenHeld = 0;
  bool hasChanged = false;  // the network, and the manager knows
  unsigned seed = 0;        // of the round
  const std::shared_ptr<NotificationCenter> elsewhere = std::make_shared<NotificationCenter>();
  std::unique_ptr<RawServer> server;
};

/// QV_STRESS_SECONDS and QV_STRESS_SEED have it last longer, and do again what it did.
TEST_F(QVStressTest, AccountsForEachHitWhateverElseHappens) {
  seed = numberFrom("QV_STRESS_SEED", std::random_device()());
  const std::chrono::seconds time(numberFrom("QV_STRESS_SECONDS", 5));
  std::cout << "QV_STRESS_SEED=" << seed << std::endl;
  const auto end = std::chrono::steady_clock::now() + time;
  for (int round = 0; round < 3 || std::chrono::steady_clock::now() < end; ++round, seed += 10) {
    const auto kind = static_cast<Kind>(round % 3);
    SCOPED_TRACE(testing::Message() << "round " << round);
    server = std::make_unique<RawServer>([this](auto& connection) { serve(connection); });
    ledger.begin(round, kind, manager->nextRequestID() + 1);
    runRound(kind);
    ASSERT_NO_FATAL_FAILURE(expectNothingToBeLeft());
    ledger.expectEachToBeAccountedFor(manager->nextRequestID());
    server.reset();
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
