#include <QVPlatform/Dispatch/MainQueue.h>

#include <QVPlatform/Dispatch/Internal/Block.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <utility>

namespace QVPlatform {

struct MainQueue::State {
  /// What the main thread and those that hand in blocks meet in. The child of a fork() gets another
  /// one and leaves this alone, which is the parent's.
  struct Shared {
    std::condition_variable changed;
    std::deque<Block> blocks;
    bool isStopped = false;
  };

  static void beginAnew(void* state) {
    auto& own = *static_cast<State*>(state);
    own.mutex.assumeHeld();
    leaveToParent(std::move(own.shared));
    own.shared = std::make_unique<Shared>();
    own.replaceDescriptor();
  }

  /// The child has the parent's counter: what it reads, the parent misses.
  void replaceDescriptor() QV_REQUIRES(mutex) {
    if (descriptor < 0) return;
    const int own = makeCounter();
    const bool isReplaced = own >= 0 && dup3(own, descriptor, O_CLOEXEC) >= 0;
    if (own >= 0) close(own);
    if (isReplaced) return;
    close(descriptor);
    descriptor = -1;
  }

  static int makeCounter() { return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

  /// Makes the descriptor say whether blocks wait.
  void showWaiting() const QV_REQUIRES(mutex) {
    std::uint64_t count = 1;
    if (descriptor < 0) return;
    // Neither can fail on a non-blocking counter in a way that matters: it says what it should.
    [[maybe_unused]] const ssize_t done = shared->blocks.empty()
                                              ? read(descriptor, &count, sizeof count)
                                              : write(descriptor, &count, sizeof count);
  }

  /// Releases the mutex while the block runs.
  void runFirst() QV_REQUIRES(mutex) {
    Block block = takeFirst(shared->blocks);
    if (shared->blocks.empty()) showWaiting();
    runUnlocked(std::move(block), mutex);
  }

  ForkMutex mutex{beginAnew, this};
  std::unique_ptr<Shared> shared QV_GUARDED_BY(mutex) = std::make_unique<Shared>();
  int descriptor QV_GUARDED_BY(mutex) = -1;
};

MainQueue::MainQueue() : state_(std::make_unique<State>()) {}

MainQueue::~MainQueue() = default;

MainQueue& MainQueue::mainQueue() {
  struct Shared {
    MainQueue queue;
  };
  return Lasting<Shared>::object().queue;
}

bool MainQueue::isMainThread() noexcept { return gettid() == getpid(); }

bool MainQueue::async(std::function<void()> block) {
  const Lock lock(state_->mutex);
  State::Shared& shared = *state_->shared;
  if (!callOut([&] { shared.blocks.push_back(std::move(block)); })) return false;
  if (shared.blocks.size() == 1) state_->showWaiting();
  shared.changed.notify_one();
  return true;
}

bool MainQueue::sync(std::function<void()> block) {
  if (isMainThread()) {
    callOut(block);
    return true;
  }
  struct Ticket {
    Mutex mutex;
    std::condition_variable done;
    bool hasRun QV_GUARDED_BY(mutex) = false;
  };
  bool isWaiting = false;
  std::shared_ptr<Ticket> ticket;
  callOut([&] {
    ticket = std::make_shared<Ticket>();
    isWaiting = async([ticket, &block] {
      callOut(block);
      const Lock lock(ticket->mutex);
      ticket->hasRun = true;
      ticket->done.notify_one();
    });
  });
  if (!isWaiting) return false;
  Lock lock(ticket->mutex);
  while (!ticket->hasRun) lock.wait(ticket->done);
  return true;
}

void MainQueue::run() {
  Lock lock(state_->mutex);
  for (;;) {
    auto& shared = state_->shared;  // another one after a fork() that a block made
    while (!shared->isStopped && shared->blocks.empty()) lock.wait(shared->changed);
    if (std::exchange(shared->isStopped, false)) return;
    state_->runFirst();
  }
}

void MainQueue::stop() {
  const Lock lock(state_->mutex);
  state_->shared->isStopped = true;
  state_->shared->changed.notify_one();
}

int MainQueue::fileDescriptor() {
  const Lock lock(state_->mutex);
  if (state_->descriptor < 0) {
    state_->descriptor = State::makeCounter();
    if (!state_->shared->blocks.empty()) state_->showWaiting();
  }
  return state_->descriptor;
}

void MainQueue::drain() {
  const Lock lock(state_->mutex);
  for (auto left = state_->shared->blocks.size(); left > 0; --left) {
    if (state_->shared->blocks.empty()) return;  // a block drained the queue, or forked
    state_->runFirst();
  }
}

}  // namespace QVPlatform
