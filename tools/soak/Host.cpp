#include "soak/Host.h"

#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "soak/Faults.h"
#include "soak/OfflineFile.h"
#include "soak/Server.h"
#include "tests/support/Sanitizers.h"

using QVPlatform::MainQueue;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;

namespace {

constexpr int kSilent = 6;
constexpr std::int32_t kUsualLifetime = 200'000;
constexpr std::uint32_t kLargestBurst = 40;
constexpr std::uint32_t kLastBurst = 10;
constexpr auto kPatience = std::chrono::seconds(40);  // longer than a few time-outs
constexpr unsigned kForkedPatience = 20;              // seconds
constexpr int kStuck = 3;

std::atomic<bool> isStopped{false};
constexpr int kShortPause = 3000;  // microseconds

QVNetworkManager& manager() { return *QVNetworkManager::sharedInstance(); }

void announce(const String& name) {
  const Exemption none(false);
  NotificationCenter::defaultCenter()->postNotification(Notification(name));
}

}  // namespace

Host::Host(const Errand& errand)
    : errand_(errand),
      ledger_(std::make_unique<Ledger>(errand.ledger)),
      random_(static_cast<std::uint32_t>(errand.seed)),
      savesAlways_(chance(30)),
      runsInBackground_(savesAlways_ && chance(50)),
      hasSmallQueue_(!savesAlways_ && chance(15) && !lasts()),
      forks_(!savesAlways_ && chance(15) && !lasts() && QVTest::kChildrenMayGoOn),
      isUp_(chance(70)),
      network_(std::make_shared<ScriptedNetwork>(isUp_)),
      next_(errand.firstHit),
      left_(errand.hitCount) {}

void Host::stop() { isStopped = true; }

int Host::run() {
  const Exemption own;  // what fails, fails for the core
  if (errand_.ending == Ending::kKilled) killLater();
  start();
  sendBursts();
  end();
  return 0;
}

void Host::start() {
  QVPlatform::Application::setIdentifier("soak");
  QVPlatform::Application::setContainerDirectory(errand_.container);
  QVPlatform::NetworkReachability::setSource(network_);
  QVDebug::setDebugLevel(kSilent);
  QVDebug::useCustomWKProcessPool(true);  // nobody here asks for a user agent
  const auto center = NotificationCenter::defaultCenter();
  const auto onOutcome = [this](const Notification& outcome) { this->onOutcome(outcome); };
  center->addObserver(this, onOutcome, kQVNotification_HTTPResponse);
  center->addObserver(this, onOutcome, kQVNotification_HTTPRequestError);
  ledger_->write(What::kStarting);
  std::make_shared<QVCoreInitialisation>()->init();
  ledger_->write(What::kStarted);
  if (savesAlways_) {
    QVCoreVariables::sharedInstance()->setEnableSDKInBG(runsInBackground_);
    manager().enableRunningInBackground();
    ledger_->write(What::kSavesAlways);
  }
  addConfiguration();
  if (hasSmallQueue_) {
    manager().changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(kUsualLifetime,
                                                                               kSmallQueue);
  }
}

void Host::sendBursts() {
  if (forks_) sendFromFork();
  while (left_ > kLastBurst && !isStopped) {
    waitForTurn();
    sendBurst();
    if (chance(70)) drain();
    if (chance(50)) sendLastOfBurst();
  }
  if (isStopped) left_ = 0;
}

/// Those that last keep to their time.
void Host::waitForTurn() {
  const std::uint32_t sent = errand_.hitCount - left_;
  std::this_thread::sleep_until(
      begin_ + std::chrono::milliseconds(1000LL * errand_.seconds * sent / errand_.hitCount));
}

void Host::sendBurst() {
  setNetworkUp(chance(70));
  const bool isInTrouble = chance(20) && kCanFail;
  if (isInTrouble) beginTrouble();
  const std::uint32_t count = upTo(kLargestBurst);
  if (!hasSmallQueue_ && chance(30)) {
    postFromThreads(count);
  } else {
    postSome(count);
  }
  if (chance(20)) updateConfiguration();
  if (chance(30)) visitBackground();
  if (isInTrouble) {
    endTrouble();
    setNetworkUp(false);  // what the core could not do then, it tries again with the next event
  }
  setNetworkUp(true);
}

void Host::beginTrouble() {
  const Trouble trouble = chooseTrouble(random_);
  if (trouble.isOfDisk) ledger_->write(What::kDiskFails);
  if (trouble.isOfNetwork) ledger_->write(What::kNetworkFails);
  armFault(trouble.fault);
}

void Host::endTrouble() {
  pauseUpTo(kShortPause);
  disarmFault();
  ledger_->write(What::kFaultEnds);
}

/// After it the client is idle, so that it can only learn from a look at its connection what the
/// server did to that meanwhile.
void Host::sendLastOfBurst() {
  drain();
  std::uint32_t count = 1;
  const HitID hit = take(&count);
  if (count == 0) return;
  post(hit, "/last/");
  drain();
  Server::settle(errand_.port, hit);
}

void Host::visitBackground() {
  enterBackground();
  pauseUpTo(kShortPause);
  if (chance(30)) postSome(upTo(kLastBurst));
  ledger_->write(What::kForegrounding);
  announce(kQVNotification_OnForeground);
  ledger_->write(What::kForegrounded);
}

void Host::enterBackground() {
  ledger_->write(What::kBackgrounding);
  announce(kQVNotification_OnBackground);
  if (!savesAlways_) {
    for (const HitID hit : hitsOnFile(errand_.container)) ledger_->write(What::kFiled, hit);
  }
  ledger_->write(What::kBackgrounded);
}

void Host::end() {
  setNetworkUp(errand_.ending == Ending::kDrained || chance(50));
  if (errand_.ending == Ending::kShutDown) return shutDown();
  if (errand_.ending != Ending::kDrained && chance(20) && kCanFail) beginTrouble();
  postSome(left_);
  switch (errand_.ending) {
    case Ending::kDrained:
      return drain();
    case Ending::kSaved:
      return enterBackground();
    case Ending::kShutDown:
    case Ending::kExits:
      return;
    case Ending::kKilledInBackground:
      enterBackground();
      pauseUpTo(kShortPause);
      kill(getpid(), SIGKILL);
      return;
    case Ending::kKilled:
      for (;;) pause();
  }
}

/// What comes while the kit ends, and behind that, must be saved like the rest.
void Host::shutDown() {
  const std::jthread poster([this] { postSome(left_); });
  pauseUpTo(kShortPause);
  const auto result = manager().shutdownWithin(kPatience);
  ledger_->write(result.isIdle && result.savedHits ? What::kShutDown : What::kStuck);
}

// A forked process.

/// Parent and child must not meet on a connection, so hits are under way when it is made. It is
/// made before there can be a file, which the child would restore while the parent has the same
/// hits.
void Host::sendFromFork() {
  setNetworkUp(true);
  postSome(upTo(kLargestBurst));
  std::uint32_t count = upTo(kLastBurst);
  const HitID first = take(&count);
  const pid_t child = fork();
  if (child == 0) runForked(first, count);
  int status = 0;
  waitpid(child, &status, 0);
  const bool isGood = WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : status == 0;
  if (!isGood) ledger_->write(What::kStuck);
}

void Host::runForked(HitID first, std::uint32_t count) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  alarm(kForkedPatience);
  ledger_ = std::make_unique<Ledger>(errand_.ledger + kForkedSuffix);
  ledger_->write(What::kStarting);
  manager().reinit();
  ledger_->write(What::kStarted);
  for (HitID hit = first; hit < first + count; ++hit) post(hit, "/flow/");
  if (chance(70)) drain();
  if (chance(30)) kill(getpid(), SIGKILL);
  std::exit(0);
}

// Time and chance.

void Host::setNetworkUp(bool isUp) {
  if (std::exchange(isUp_, isUp) == isUp) return;
  bool isKnown = false;
  const auto center = NotificationCenter::defaultCenter();
  center->addObserver(
      &isKnown, [&isKnown](const Notification&) { isKnown = true; },
      kQVNotification_InternetChanged);
  network_->setUp(isUp);
  runUntil([&isKnown] { return isKnown; });
  center->removeObserver(&isKnown);
}

void Host::drain() {
  runUntil([] { return manager().operationQueue()->operationCount() == 0; });
  ledger_->write(What::kDrained);
}

void Host::runUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  auto& queue = MainQueue::mainQueue();
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      ledger_->write(What::kStuck);
      _exit(kStuck);
    }
    pollfd file{queue.fileDescriptor(), POLLIN, 0};
    poll(&file, 1, 1);
    queue.drain();
  }
}

void Host::pauseUpTo(int microseconds) {
  std::this_thread::sleep_for(
      std::chrono::microseconds(upTo(static_cast<std::uint32_t>(microseconds))));
}

/// Some die while the core starts, some later.
void Host::killLater() {
  const std::chrono::microseconds time(upTo(chance(40) ? 30'000 : 400'000));
  std::thread([time] {
    std::this_thread::sleep_for(time);
    kill(getpid(), SIGKILL);
  }).detach();
}

std::uint32_t Host::upTo(std::uint32_t most) {
  return std::uniform_int_distribution<std::uint32_t>(1, most)(random_);
}

bool Host::chance(unsigned percent) { return upTo(100) <= percent; }
