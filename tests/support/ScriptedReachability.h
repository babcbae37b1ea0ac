#pragma once

#include <QVPlatform/SystemConfiguration/NetworkReachability.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace QVTest {

/// Reachability as the test says, whatever the machine's network is like.
class ScriptedReachability : public QVPlatform::ReachabilitySource {
 public:
  using Flags = QVPlatform::NetworkReachabilityFlags;
  static constexpr Flags kReachable = QVPlatform::kSCNetworkReachabilityFlagsReachable;

  explicit ScriptedReachability(Flags flags = kReachable) : flags_(flags) {}

  /// From now on these are the flags of every target; the subscribers hear of it, but the core not
  /// before the main queue runs.
  void change(Flags flags) {
    {
      const std::lock_guard lock(mutex_);
      flags_ = flags;
    }
    callSubscribers();
  }
  void callSubscribers() {
    std::vector<std::weak_ptr<Changed>> subscribers;
    {
      const std::lock_guard lock(mutex_);
      subscribers = subscribers_;
    }
    for (const auto& subscriber : subscribers) {
      if (const auto changed = subscriber.lock()) (*changed)();
    }
  }
  /// Errors to refuse with; 0 to answer.
  void refuseFlags(int error) {
    const std::lock_guard lock(mutex_);
    flagsError_ = error;
  }
  void refuseSubscriptions(int error) {
    const std::lock_guard lock(mutex_);
    subscriptionError_ = error;
  }
  QVPlatform::ReachabilityTarget lastTarget() const {
    const std::lock_guard lock(mutex_);
    return lastTarget_;
  }
  std::size_t numberOfSubscriptions() const {
    const std::lock_guard lock(mutex_);
    std::size_t count = 0;
    for (const auto& subscriber : subscribers_) count += subscriber.expired() ? 0 : 1;
    return count;
  }

  /// Those that have ended, too.
  std::size_t numberOfAllSubscriptions() const {
    const std::lock_guard lock(mutex_);
    return subscribers_.size();
  }

  bool getFlags(const QVPlatform::ReachabilityTarget& target, Flags* flags) override {
    if (const auto action = std::exchange(atFirstLook, nullptr)) action();
    const std::lock_guard lock(mutex_);
    lastTarget_ = target;
    if (flagsError_ == 0) *flags = flags_;
    errno = flagsError_;
    return flagsError_ == 0;
  }

  std::shared_ptr<void> subscribe(const QVPlatform::ReachabilityTarget&, Changed changed) override {
    const std::lock_guard lock(mutex_);
    errno = subscriptionError_;
    if (subscriptionError_ != 0) return nullptr;
    auto subscriber = std::make_shared<Changed>(std::move(changed));
    subscribers_.push_back(subscriber);
    return subscriber;
  }

  /// Called when flags are asked for the first time: in the middle of an initialisation.
  std::function<void()> atFirstLook;

 private:
  mutable std::mutex mutex_;
  Flags flags_;
  int flagsError_ = 0;
  int subscriptionError_ = 0;
  QVPlatform::ReachabilityTarget lastTarget_;
  std::vector<std::weak_ptr<Changed>> subscribers_;
};

}  // namespace QVTest
