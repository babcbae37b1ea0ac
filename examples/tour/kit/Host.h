#pragma once

#include <QVCore/QVCore.h>
#include <QVPlatform/Foundation/KeyValueObserver.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "modules/hit_builder/HitBuilder.h"
#include "tour/kit/Narrator.h"
#include "tour/kit/ScriptedNetwork.h"

/// An application that embeds the core: it says where its files are, starts the core, runs the main
/// queue, and has hits sent by the hit builder. One a process; used by the main thread.
class Host {
 public:
  /// The core does not run yet.
  Host(const std::string& container, const std::string& collectorURL, bool isNetworkUp,
       Narrator& narrator);

  /// Loads the consent module, which must happen before the core starts.
  void loadConsentModule();
  void acceptConsent(const char* text) { acceptConsent_(text); }
  void refuseConsent() { refuseConsent_(); }

  /// The user agent is not sought before the tour asks for it.
  void startCore();
  QVNetworkManager& manager() { return *QVNetworkManager::sharedInstance(); }

  HitBuilder& hits() { return hits_; }
  /// Sends a hit for each page.
  void send(const std::vector<std::string>& pages);

  /// The application goes to the background, from where the system may end it.
  void enterBackground();
  /// Switches the network, which must change by that, and waits until the core has taken notice.
  void setNetworkUp(bool isUp);

  /// Runs the main queue until the condition holds; false if that takes too long.
  bool runUntil(const std::function<bool()>& condition);
  /// Runs the main queue until the core's queue holds so many hits; false if that takes too long. A
  /// hit is in the queue until a moment after its outcome was told.
  bool waitForQueue(std::size_t count);
  /// Runs the main queue until no configuration is on its way; false if that takes too long.
  bool waitForDownloads();
  /// What became of the next hits ("home answered: ok"), in the order in which they came back:
  /// `count` of them, fewer if they take too long.
  std::vector<std::string> waitForOutcomes(std::size_t count);
  /// The same with the core's numbers ("#0 home answered: ok").
  std::vector<std::string> waitForNumberedOutcomes(std::size_t count);

 private:
  using Describe = std::function<std::string(const HitBuilder::Outcome&)>;

  std::vector<std::string> waitForOutcomes(std::size_t count, const Describe& describe);
  void onOutcome(const HitBuilder::Outcome& outcome);

  Narrator& narrator_;
  const std::shared_ptr<ScriptedNetwork> network_;
  const std::shared_ptr<QVPlatform::KeyValueObserver> queueWatcher_;
  HitBuilder hits_;
  std::vector<HitBuilder::Outcome> outcomes_;
  void (*acceptConsent_)(const char*) = nullptr;
  void (*refuseConsent_)() = nullptr;
};
