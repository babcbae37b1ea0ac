#include "tour/kit/Host.h"

#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>
#include <dlfcn.h>
#include <poll.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "modules/consent/Consent.h"

using QVPlatform::MainQueue;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;

namespace {

constexpr std::chrono::seconds kPatience{10};

// Levels of the core's log: what it does with waiting hits when the application leaves and comes
// back is shown, and nothing else.
constexpr std::int32_t kOfflineHits = 1;
constexpr std::int32_t kSilent = 6;

std::string textOf(const HitBuilder::Outcome& outcome) {
  constexpr const char* kVerbs[] = {" answered: ", " failed: ", " refused: "};
  return outcome.page + kVerbs[static_cast<int>(outcome.kind)] + outcome.text;
}

std::string numbered(const HitBuilder::Outcome& outcome) {
  return "#" + std::to_string(outcome.id) + " " + textOf(outcome);
}

/// Lets the main queue take a turn whenever the length of one of the core's queues has changed.
class QueueWatcher final : public QVPlatform::KeyValueObserver {
 public:
  void observeValueForKeyPathOfObjectChangeContext(const QVPlatform::String&,
                                                   const std::shared_ptr<QVPlatform::Object>&,
                                                   const QVPlatform::Value&, const void*) override {
    MainQueue::mainQueue().async([] {});
  }
};

template <class Function>
Function* functionIn(void* library, const char* name) {
  void* const function = dlsym(library, name);
  if (function == nullptr) throw std::runtime_error(dlerror());
  return reinterpret_cast<Function*>(function);
}

}  // namespace

Host::Host(const std::string& container, const std::string& collectorURL, bool isNetworkUp,
           Narrator& narrator)
    : narrator_(narrator),
      network_(std::make_shared<ScriptedNetwork>(isNetworkUp)),
      queueWatcher_(std::make_shared<QueueWatcher>()),
      hits_(collectorURL, [this](const HitBuilder::Outcome& outcome) {
        // Outcomes come on the core's threads; the application handles them on its own.
        MainQueue::mainQueue().async([this, outcome] { onOutcome(outcome); });
      }) {
  QVPlatform::Application::setContainerDirectory(container);
  QVPlatform::NetworkReachability::setSource(network_);
}

void Host::loadConsentModule() {
  const auto directory = std::filesystem::canonical("/proc/self/exe").parent_path();
  void* const library = dlopen((directory / "libconsent.so").c_str(), RTLD_NOW);
  if (library == nullptr) throw std::runtime_error(dlerror());
  acceptConsent_ = functionIn<decltype(consentAccept)>(library, "consentAccept");
  refuseConsent_ = functionIn<decltype(consentRefuse)>(library, "consentRefuse");
}

void Host::startCore() {
  QVDebug::setDebugLevel(kOfflineHits);
  QVDebug::useCustomWKProcessPool(true);
  std::make_shared<QVCoreInitialisation>()->init();
  QVDebug::setDebugLevel(kSilent);
  manager().operationQueue()->addObserverForOperationCount(queueWatcher_, nullptr);
  manager().consentQueue()->addObserverForOperationCount(queueWatcher_, nullptr);
}

void Host::enterBackground() {
  QVDebug::setDebugLevel(kOfflineHits);
  NotificationCenter::defaultCenter()->postNotification(Notification(kQVNotification_OnBackground));
  QVDebug::setDebugLevel(kSilent);
}

void Host::send(const std::vector<std::string>& pages) {
  for (const auto& page : pages) {
    narrator_.event("> " + page + " is handed to the core");
    hits_.send(page);
  }
}

void Host::setNetworkUp(bool isUp) {
  bool isKnown = false;
  const auto center = NotificationCenter::defaultCenter();
  center->addObserver(
      &isKnown, [&isKnown](const Notification&) { isKnown = true; },
      kQVNotification_InternetChanged);
  network_->setUp(isUp);
  const bool isInTime = runUntil([&isKnown] { return isKnown; });
  center->removeObserver(&isKnown);
  narrator_.event(isUp ? "= the network is back" : "= the network is gone");
  if (!isInTime) narrator_.check(false, "the core takes notice of the network");
}

bool Host::runUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  auto& queue = MainQueue::mainQueue();
  while (!condition()) {
    const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (remaining.count() <= 0) return false;
    pollfd file{queue.fileDescriptor(), POLLIN, 0};
    poll(&file, 1, static_cast<int>(remaining.count()));
    queue.drain();
  }
  return true;
}

bool Host::waitForQueue(std::size_t count) {
  return runUntil([&] { return manager().operationQueue()->operationCount() == count; });
}

bool Host::waitForDownloads() {
  return runUntil([&] { return manager().consentQueue()->operationCount() == 0; });
}

std::vector<std::string> Host::waitForOutcomes(std::size_t count) {
  return waitForOutcomes(count, textOf);
}

std::vector<std::string> Host::waitForNumberedOutcomes(std::size_t count) {
  return waitForOutcomes(count, numbered);
}

std::vector<std::string> Host::waitForOutcomes(std::size_t count, const Describe& describe) {
  runUntil([&] { return outcomes_.size() >= count; });
  std::vector<std::string> texts;
  for (const auto& outcome : std::exchange(outcomes_, {})) texts.push_back(describe(outcome));
  return texts;
}

void Host::onOutcome(const HitBuilder::Outcome& outcome) {
  outcomes_.push_back(outcome);
  narrator_.event("< " + numbered(outcome));
}
