#pragma once

#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

// How the shared services come into being. Each class has one instance, made bare when the library
// is loaded, and one state, which says how far its initialisation is. The first thread that asks
// for the instance initialises it, and later ones wait for that. The state is the class's and not
// the instance's, so that whoever makes an instance of its own finds the initialisation done, and
// its instance stays bare. The few lines by which a class calls what is below stand in each of the
// four, since its state and the type of its results are its own.

/// Values of a service class's QV_INIT_STATE.
enum QVInitState : std::int32_t {
  QVInitStateNever = 0,
  QVInitStateInProgress = 1,
  QVInitStateDone = 2,
  QVInitStateRequestedAgain = 3,
};

/// Runs `initialise` if the class was never initialised or is asked to be again. If another thread
/// is doing so, returns when the state has become QVInitStateDone. It is `initialise` that stores
/// this, at its end or earlier, where the class wants to let others go on; a class that never
/// stores it lets a second caller wait for ever. When `initialise` throws, which is told on the
/// console log, or its thread ends, the state becomes again what it was, so that the next call
/// tries once more.
template <class Initialise>
void QVGuardedInit(std::atomic<std::int32_t>& state, Initialise&& initialise) {
  for (std::int32_t current; (current = state) != QVInitStateDone;) {
    if (current == QVInitStateInProgress) {
      std::this_thread::yield();
    } else if (state.compare_exchange_strong(current, QVInitStateInProgress)) {
      struct Undo {
        ~Undo() {
          if (!isDone) state = before;
        }
        std::atomic<std::int32_t>& state;
        const std::int32_t before;
        bool isDone = false;
      } undo{state, current};
      undo.isDone = QVPlatform::callOut(initialise);
      return;
    }
  }
}

/// Holds the shared instance of a service class, whose QV_INIT_STATE is `state`.
template <class Service>
class QVSharedInstance {
 public:
  /// The instance, which the first call initialises, and the next call if that one failed. Another
  /// thread that asks meanwhile gets it when it is initialised, or as soon as the state is
  /// QVInitStateDone. The initialising thread itself, whose own code may lead back here, gets it
  /// at once, as far as it has come.
  static const std::shared_ptr<Service>& get(const std::atomic<std::int32_t>& state) {
    // There is always an instance to give, since it is made when the library is loaded.
    QVSharedInstance& shared = QVPlatform::Lasting<QVSharedInstance>::object();
    const std::int32_t current = state;
    const bool isUnderWayAgain = current == QVInitStateInProgress && shared.isReady_;
    if (current != QVInitStateDone && !isUnderWayAgain) shared.initialise(state);
    return shared.instance_;
  }

 private:
  /// Of the thread that initialises; over also when that ends in the middle.
  struct Turn {
    ~Turn() {
      shared.isReady_ = !isDue(state);
      shared.creator_ = std::thread::id();
      shared.creator_.notify_all();
    }
    QVSharedInstance& shared;
    const std::atomic<std::int32_t>& state;
  };

  static bool isDue(std::int32_t state) {
    return state == QVInitStateNever || state == QVInitStateRequestedAgain;
  }

  void initialise(const std::atomic<std::int32_t>& state) {
    const auto self = std::this_thread::get_id();
    for (std::thread::id other; !isReady_ || isDue(state); other = {}) {
      if (creator_.compare_exchange_strong(other, self)) {
        const Turn turn{*this, state};
        instance_->init();
        // A failure gives back what the attempt took, so another one may well succeed.
        if (isDue(state)) instance_->init();
        return;
      }
      if (other == self) return;
      creator_.wait(other);
    }
  }

  const std::shared_ptr<Service> instance_ = std::make_shared<Service>();
  std::atomic<std::thread::id> creator_{};
  std::atomic<bool> isReady_{false};
};
