#include <QVPlatform/Dispatch/SerialQueue.h>

#include <QVPlatform/Dispatch/Internal/Block.h>
#include <QVPlatform/Dispatch/Internal/Thread.h>
#include <QVPlatform/Foundation/ForkMutex.h>

#include <condition_variable>
#include <deque>
#include <utility>

namespace QVPlatform {

struct SerialQueue::State {
  /// What the queue's thread and those that hand in blocks meet in. The child of a fork() gets
  /// another one and leaves this alone, which the parent's thread waits in.
  struct Shared {
    std::condition_variable changed;
    std::deque<Block> blocks;
    bool hasThread = false;
  };

  static void beginAnew(void* state) {
    auto& own = *static_cast<State*>(state);
    own.mutex.assumeHeld();
    leaveToParent(std::move(own.shared));
    own.shared = std::make_unique<Shared>();
  }

  void startThreadFor(const std::shared_ptr<State>& self) QV_REQUIRES(mutex) {
    shared->hasThread = startThread("QVSerialQueue", [self] { self->run(self); });
  }

  void run(const std::shared_ptr<State>& self) {
    Lock lock(mutex);
    const Shared* const own = shared.get();
    try {
      runAll(lock);
    } catch (...) {  // a block has ended the thread
      if (shared.get() == own) startThreadFor(self);
      throw;
    }
  }

  /// Ends, too, in the child of a fork() that a block made: the queue gets another thread.
  void runAll(Lock& lock) QV_REQUIRES(mutex) {
    for (const Shared* const own = shared.get(); shared.get() == own;) {
      while (!isClosed && shared->blocks.empty()) lock.wait(shared->changed);
      if (shared->blocks.empty()) return;
      runUnlocked(takeFirst(shared->blocks), mutex);
    }
  }

  ForkMutex mutex{beginAnew, this};
  std::unique_ptr<Shared> shared QV_GUARDED_BY(mutex) = std::make_unique<Shared>();
  bool isClosed QV_GUARDED_BY(mutex) = false;
};

SerialQueue::SerialQueue(String label)
    : label_(std::move(label)), state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue() {
  const Lock lock(state_->mutex);
  state_->isClosed = true;
  state_->shared->changed.notify_one();
}

bool SerialQueue::async(std::function<void()> block) {
  const Lock lock(state_->mutex);
  State::Shared& shared = *state_->shared;
  if (!callOut([&] { shared.blocks.push_back(std::move(block)); })) return false;
  if (!shared.hasThread) state_->startThreadFor(state_);
  shared.changed.notify_one();
  return true;
}

}  // namespace QVPlatform
