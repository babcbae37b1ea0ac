#include "tests/support/HTTPServer.h"
#include "tests/support/NetworkManagerTest.h"
#include "tests/support/Test.h"

namespace {

/// What holds hits and what consent needs, and what lets them go.
class QVNetworkManagerGateTest : public NetworkManagerTest {
 protected:
  /// What may come to pass: a notification, or one of the words for what is none.
  void happen(const String& event) const {
    const auto variables = QVCoreVariables::sharedInstance();
    if (event == "wait") return manager->waitForUserAgent();
    if (event == "know") return variables->addDataWithValue("#QV_USER_AGENT#", "known");
    if (event == "run on") return variables->setEnableSDKInBG(true);
    if (event == "reinit") return static_cast<void>(manager->reinit());
    if (event == "join") return ClassRegistry::registerClass("QVMobilePrivacy");
    post(event, {{"url", "http://h/"}, {"data", "x"}, {"POSTData", 5}});
  }
};

/// What an event does: '=' leaves a queue as it is, 'r' resumes it, 'h' holds it.
struct GateRule {
  String event;
  /// To hits, in a kit that waits for the start, runs, is stopped: with a network, with one while
  /// the user agent is awaited, without a network, without one while the user agent is awaited.
  std::string hits;
  std::string consent;      // to what consent needs, with and without a network
  std::string after{"=="};  // the kit's state, and whether the user agent is awaited

  static int changed(int before, char effect) {
    if (effect == '=') return before;
    return effect == 'r' ? 0 : effect == 'h' ? 1 : effect - '0';
  }
};

// In this order, since the kit cannot be brought back from "run on", "join" and "know".
const GateRule kGateRules[] = {
    {kQVNotification_StartingTheSDK, "rhhh rhhh rhhh", "==", "1="},
    {kQVNotification_StoppingTheSDK, "==== ==== ====", "==", "2="},
    {kQVNotification_UserAgentAvailable, "==== =r=h ====", "==", "=0"},
    {"wait", "hhhh hhhh hhhh", "==", "=1"},
    {kQVNotification_InternetUp, "==== rhrh rhrh", "rr"},
    {kQVNotification_InternetDown, "hhhh hhhh hhhh", "hh"},
    {kQVNotification_InternetChanged, "==== ==== ====", "=="},
    {kQVNotification_OnForeground, "==== rh== rh==", "rr"},
    {kQVNotification_OnBackground, "hhhh hhhh hhhh", "hh"},
    {kQVNotification_HTTPRequest, "==== ==== ====", "=="},
    {kQVNotification_HTTPResponse, "==== ==== ====", "=="},
    {"reinit", "rrhh rrhh rrhh", "rh", "10"},
    {"run on", "==== ==== ====", "=="},
    {kQVNotification_OnForeground, "==== rh== rh==", "rr"},
    {kQVNotification_OnBackground, "==== ==== ====", "=="},
    {"join", "==== ==== ====", "=="},
    {"reinit", "hhhh hhhh hhhh", "rh", "00"},
    {"know", "==== ==== ====", "=="},
    {"wait", "==== ==== ====", "=="},
};

TEST_F(QVNetworkManagerGateTest, SetsItsQueuesByEachEventAlone) {
  manager = QVNetworkManager::sharedInstance();
  QVDebug::blockHits(true);
  for (const GateRule& rule : kGateRules) {
    for (int situation = 0; situation < 24; ++situation) {
      const int isHeld = situation % 2, isAwaited = situation / 2 % 2, isDown = situation / 4 % 2,
                state = situation / 8;
      SCOPED_TRACE(stringWithFormat("rule %@: state %@, down %@, awaited %@, held %@",
                                    {&rule - kGateRules, state, isDown, isAwaited, isHeld})
                       .view());
      network->change(isDown ? 0 : ScriptedReachability::kReachable);
      manager->setManagerState(state);
      manager->setShouldWaitForUserAgent(isAwaited != 0);
      manager->operationQueue()->setSuspended(isHeld != 0);
      manager->consentQueue()->setSuspended(isHeld != 0);
      happen(rule.event);
      const auto column = static_cast<std::size_t>(state * 5 + isDown * 2 + isAwaited);
      EXPECT_EQ(hitsAreHeld(), GateRule::changed(isHeld, rule.hits[column]));
      EXPECT_EQ(manager->consentQueue()->isSuspended(),
                GateRule::changed(isHeld, rule.consent[isDown != 0]));
      EXPECT_EQ(manager->managerState(), GateRule::changed(state, rule.after[0]));
      EXPECT_EQ(manager->shouldWaitForUserAgent(), GateRule::changed(isAwaited, rule.after[1]));
    }
  }
}

TEST_F(QVNetworkManagerGateTest, SendsWhatWaitedForAGateWhenItOpens) {
  HTTPServer server;
  happen("join");
  manager = QVNetworkManager::sharedInstance();
  const Recorder answers{{kQVNotification_HTTPResponse}};
  const String gates[][2] = {
      {"nothing", kQVNotification_StartingTheSDK},
      {kQVNotification_InternetDown, kQVNotification_InternetUp},
      {kQVNotification_OnBackground, kQVNotification_OnForeground},
      {"wait", kQVNotification_UserAgentAvailable},
      {kQVNotification_StoppingTheSDK, "nothing"},
  };
  std::size_t count = 0;
  for (const auto& [closing, opening] : gates) {
    happen(closing);
    request({{"url", server.url("/a")}, {"POSTData", "a"}});
    request({{"url", server.url("/b")}});
    happen(opening);
    count += 2;
    ASSERT_THAT(answers.waitFor(count), SizeIs(count)) << closing.view();
    EXPECT_EQ(answers.heard().back().userInfo().get("ID"), Value(count - 1));
    // One that has been answered and is not over would be saved, and perhaps restored.
    ASSERT_TRUE(waitUntil([&] { return manager->operationQueue()->operationCount() == 0; }));
  }
  EXPECT_EQ(server.requests()[0].target + server.requests()[0].body, "/aa5");
  EXPECT_EQ(server.requests()[1].target + server.requests()[1].body, "/b(null)5");
}

TEST_F(QVNetworkManagerGateTest, SendsForConsentWhileAHitHangsAndNoSecondHit) {
  std::latch end(1);
  HTTPServer server([&](const auto& asked, auto& response) {
    if (asked.path == "/hangs") end.wait();
    HTTPServer::answerOK(asked, response);
  });
  manager = QVNetworkManager::sharedInstance();
  const Recorder answers{{kQVNotification_HTTPResponse}};
  for (const char* path : {"/hangs", "/waits"}) request({{"url", server.url(path)}});
  server.waitForRequests(1);
  request({{"url", server.url("/consent")}, {"HTTPURLResponse", "x"}});
  ASSERT_THAT(answers.waitFor(1), SizeIs(1));
  EXPECT_EQ(answers.heard()[0].userInfo().get("ID"), Value(2U));
  EXPECT_THAT(server.requests(), SizeIs(2));
  EXPECT_EQ(manager->operationQueue()->operationCount(), 2U);
  end.count_down();
  EXPECT_EQ(answers.waitFor(3).back().userInfo().get("ID"), Value(1U));
}

TEST_F(QVNetworkManagerGateTest, CancelsWaitingHitsWhenStoppedBeforeTheStartAndOnlyThen) {
  beOffline();
  request({{"url", "http://h/"}});
  request({{"url", "http://h/"}, {"HTTPURLResponse", "x"}});
  for (const std::int32_t state : {1, 2, 0}) {
    manager->setManagerState(state);
    post(kQVNotification_StoppingTheSDK);
    EXPECT_EQ(manager->operationQueue()->operationAtIndex(0)->isCancelled(), state == 0);
  }
  EXPECT_FALSE(manager->consentQueue()->operationAtIndex(0)->isCancelled());
}

TEST_F(QVNetworkManagerGateTest, GivesTheAwaitedUserAgentToWaitingHitsOnlyBeforeTheStart) {
  const std::tuple<std::int32_t, bool, Value, const char*> cases[] = {
      {0, true, "Mozilla/5.0 (X)", "a&QV_USER_AGENT=Mozilla%2F5.0%20%28X%29"},
      {0, true, 5, "a"},
      {0, false, "x", "a"},
      {1, true, "x", "a"},
      {2, true, "x", "a"},
  };
  beOffline();
  for (const auto& [state, isAwaited, agent, body] : cases) {
    manager->reinit();
    request({{"url", "http://h/"}, {"POSTData", "a"}});
    manager->setManagerState(state);
    manager->setShouldWaitForUserAgent(isAwaited);
    post(kQVNotification_UserAgentAvailable, {{"data", agent}});
    EXPECT_EQ(queued().at(0).get("POSTData"), Value(body)) << state;
  }
}

/// Knows the user agent right after the first look for it.
class LateStore : public QVDynamicStore {
 public:
  Value getData(const String&) const override { return wasAsked_.exchange(true) ? "x" : nullptr; }

 private:
  mutable std::atomic<bool> wasAsked_{false};
};

TEST_F(QVNetworkManagerGateTest, MissesNoUserAgentThatComesWhileItBeginsToWait) {
  manager = QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance()->setDynamicStore(std::make_shared<LateStore>());
  manager->waitForUserAgent();
  EXPECT_FALSE(hitsAreHeld() || manager->shouldWaitForUserAgent());
}

TEST_F(QVNetworkManagerGateTest, TellsOfTheNetworkWhenItHasSetItsQueues) {
  beOffline();
  const String prefix = "QVNotification: Internet ";
  std::vector<std::string> told;
  const auto tell = [&](const Notification& heard) {
    const String line = stringWithFormat("%@ %@", {heard.name(), heard.userInfo().get("data")});
    told.emplace_back(line.stringByReplacingOccurrencesOfString(prefix, "").view());
    told.back() += hitsAreHeld() || manager->consentQueue()->isSuspended() ? " holds" : " runs";
    EXPECT_EQ(QVCoreVariables::sharedInstance()->getData("#QV_CONNEXION#"),
              Value(hitsAreHeld() ? "Connection Type Unavailable" : "WiFi"));
  };
  for (const char* name : {"Up", "Down", "Changed"}) {
    NotificationCenter::defaultCenter()->addObserver(&told, tell, prefix + name);
  }
  for (const bool isUp : {true, false}) {
    network->change(isUp ? ScriptedReachability::kReachable : 0);
    ASSERT_TRUE(runMainQueueUntil([&] { return told.size() == (isUp ? 2 : 4); }));
  }
  EXPECT_THAT(told, ElementsAre("Up (null) runs", "Changed Up runs", "Down (null) holds",
                                "Changed Down holds"));
}

TEST_F(QVNetworkManagerGateTest, RepeatsConnectivityOnceMoreForEachStart) {
  beOffline();
  const Recorder up{{kQVNotification_InternetUp}};
  post(kQVNotification_StartingTheSDK);
  post(kQVNotification_StartingTheSDK);
  network->change(ScriptedReachability::kReachable);
  EXPECT_TRUE(runMainQueueUntil([&] { return up.heard().size() >= 3; }));
  MainQueue::mainQueue().drain();
  EXPECT_EQ(up.heard().size(), 3U);
  // Whichever monitor tells of a change is asked, not the manager's own.
  const Recorder down{{kQVNotification_InternetDown}};
  network->change(kSCNetworkReachabilityFlagsReachable | kSCNetworkReachabilityFlagsIsWWAN);
  const auto other = QVReachability::reachabilityForInternetConnection();
  other->setReachableOnWWAN(false);
  NotificationCenter::defaultCenter()->postNotification(
      Notification(kQVReachabilityChangedNotification, other));
  EXPECT_THAT(down.heard(), SizeIs(3));
}

}  // namespace
