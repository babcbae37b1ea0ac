#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

// The pattern of creation and initialisation that the shared services have in common. Not part of
// the public interface.

/// Values of a service class's QV_INIT_STATE.
enum QVInitState : std::int32_t {
  QVInitStateNever = 0,
  QVInitStateInProgress = 1,
  QVInitStateDone = 2,
  QVInitStateRequestedAgain = 3,
};

/// Runs `initialise` if the class was never initialised or is asked to be again; it stores
/// QVInitStateDone where the class's own order wants it. If that is under way already, waits until
/// it has been stored.
template <class Initialise>
void QVGuardedInit(std::atomic<std::int32_t>& state, Initialise&& initialise) {
  std::int32_t current = state;
  const bool isDue = current == QVInitStateNever || current == QVInitStateRequestedAgain;
  if (isDue && state.compare_exchange_strong(current, QVInitStateInProgress)) return initialise();
  while (state != QVInitStateDone) std::this_thread::yield();
}

/// Holds the shared instance of a service class.
template <class Service>
class QVSharedInstance {
 public:
  /// Made and initialised by the first call. What initialisation calls may ask for the instance on
  /// the same thread and gets it as it is then; other threads wait until it is ready.
  static const std::shared_ptr<Service>& get() {
    QVSharedInstance& shared = holder();
    if (!shared.isReady_ && shared.creator_ != std::this_thread::get_id()) {
      std::call_once(shared.once_, [&shared] { shared.create(); });
    }
    return shared.instance_;
  }
  /// The same for a class that stores QVInitStateDone in `state` before the end of its
  /// initialisation: from then on other threads get the instance too.
  static const std::shared_ptr<Service>& get(const std::atomic<std::int32_t>& state) {
    QVSharedInstance& shared = holder();
    return shared.isMade_ && state == QVInitStateDone ? shared.instance_ : get();
  }

 private:
  static QVSharedInstance& holder() {
    static QVSharedInstance& holder = *new QVSharedInstance;  // never destroyed, as its threads
    return holder;
  }

  void create() {
    instance_ = std::make_shared<Service>();
    creator_ = std::this_thread::get_id();
    isMade_ = true;
    instance_->init();
    isReady_ = true;
    creator_ = std::thread::id();
  }

  std::once_flag once_;
  std::shared_ptr<Service> instance_;
  std::atomic<std::thread::id> creator_{};
  std::atomic<bool> isMade_{false};
  std::atomic<bool> isReady_{false};
};
