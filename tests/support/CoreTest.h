#pragma once

#include "ScriptedReachability.h"
#include "Test.h"

namespace QVTest {

/// Remembers the notifications of some names on the default center.
class Recorder {
 public:
  explicit Recorder(const std::vector<QVPlatform::String>& names) {
    for (const auto& name : names) {
      center_->addObserver(
          this, [this](const QVPlatform::Notification& heard) { record(heard); }, name);
    }
  }
  ~Recorder() { center_->removeObserver(this); }

  std::vector<QVPlatform::Notification> heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& notification : heard()) names.emplace_back(notification.name().view());
    return names;
  }
  /// What was heard once `count` notifications were, or after ten seconds without them.
  std::vector<QVPlatform::Notification> waitFor(std::size_t count) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(10), [&] { return heard_.size() >= count; });
    return heard_;
  }

 private:
  void record(const QVPlatform::Notification& notification) {
    const std::lock_guard lock(mutex_);
    heard_.push_back(notification);
    changed_.notify_all();
  }

  const std::shared_ptr<QVPlatform::NotificationCenter> center_ =
      QVPlatform::NotificationCenter::defaultCenter();
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<QVPlatform::Notification> heard_;
};

/// A process with a container of its own and a network that the test switches.
class CoreTest : public ::testing::Test {
 protected:
  CoreTest() {
    QVPlatform::Application::setContainerDirectory(container.path().string());
    QVPlatform::NetworkReachability::setSource(network);
  }

  /// Posts on the default center, as another module would.
  static void post(const QVPlatform::String& name,
                   const QVPlatform::Dictionary& userInfo = nullptr) {
    QVPlatform::NotificationCenter::defaultCenter()->postNotification(
        QVPlatform::Notification(name, nullptr, userInfo));
  }
  /// Runs what waits on the main queue until the condition holds, for ten seconds at most.
  static bool runMainQueueUntil(const std::function<bool()>& condition) {
    return waitUntil([&] {
      if (condition()) return true;
      MainQueue::mainQueue().drain();
      return false;
    });
  }

  TemporaryDirectory container;
  const std::shared_ptr<ScriptedReachability> network = std::make_shared<ScriptedReachability>();
};

}  // namespace QVTest
