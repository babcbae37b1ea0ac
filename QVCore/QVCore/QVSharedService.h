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
    static QVSharedInstance& holder = *new QVSharedInstance;  // never destroyed, as its threads
    if (!holder.isReady_ && holder.creator_ != std::this_thread::get_id()) {
      std::call_once(holder.once_, [] { holder.create(); });
    }
    return holder.instance_;
  }

 private:
  void create() {
    instance_ = std::make_shared<Service>();
    creator_ = std::this_thread::get_id();
    instance_->init();
    isReady_ = true;
    creator_ = std::thread::id();
  }

  std::once_flag once_;
  std::shared_ptr<Service> instance_;
  std::atomic<std::thread::id> creator_{};
  std::atomic<bool> isReady_{false};
};
