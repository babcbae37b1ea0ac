#pragma once

#include <QVPlatform/SystemConfiguration/ReachabilitySource.h>

#include <memory>
#include <mutex>
#include <vector>

/// A network that goes and comes as the tour says. An application hands in a source of its own like
/// this one where it knows better than the system, on a set-top box with a modem of its own say.
class ScriptedNetwork final : public QVPlatform::ReachabilitySource {
 public:
  explicit ScriptedNetwork(bool isUp) : isUp_(isUp) {}

  bool getFlags(const QVPlatform::ReachabilityTarget& target,
                QVPlatform::NetworkReachabilityFlags* flags) override;
  std::shared_ptr<void> subscribe(const QVPlatform::ReachabilityTarget& target,
                                  Changed changed) override;

  /// Returns before the core has heard of it, which is when the main queue runs.
  void setUp(bool isUp);

 private:
  std::mutex mutex_;
  bool isUp_;
  std::vector<std::weak_ptr<Changed>> subscriptions_;
};
