#include <QVPlatform/Dispatch/MainQueue.h>

#include <QVPlatform/Dispatch/Thread.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <utility>

namespace QVPlatform {

struct MainQueue::State {
  /// Requires the mutex: makes the descriptor say whether blocks wait.
  void showWaiting() const {
    std::uint64_t count = 1;
    if (descriptor < 0) return;
    // Neither can fail on a non-blocking counter in a way that matters: it says what it should.
    [[maybe_unused]] const ssize_t done = blocks.empty() ? read(descriptor, &count, sizeof count)
                                                         : write(descriptor, &count, sizeof count);
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> blocks;
  bool isStopped = false;
  int descriptor = -1;
};

MainQueue::MainQueue() : state_(std::make_unique<State>()) {}

MainQueue& MainQueue::mainQueue() {
  static MainQueue& queue = *new MainQueue;  // never destroyed: threads may outlive main
  return queue;
}

bool MainQueue::isMainThread() noexcept { return gettid() == getpid(); }

void MainQueue::async(std::function<void()> block) {
  const std::lock_guard lock(state_->mutex);
  state_->blocks.push_back(std::move(block));
  if (state_->blocks.size() == 1) state_->showWaiting();
  state_->changed.notify_one();
}

void MainQueue::sync(std::function<void()> block) {
  if (isMainThread()) return callOut(block);
  struct Ticket {
    std::mutex mutex;
    std::condition_variable done;
    bool hasRun = false;
  };
  const auto ticket = std::make_shared<Ticket>();
  async([ticket, &block] {
    callOut(block);
    const std::lock_guard lock(ticket->mutex);
    ticket->hasRun = true;
    ticket->done.notify_one();
  });
  std::unique_lock lock(ticket->mutex);
  ticket->done.wait(lock, [&ticket] { return ticket->hasRun; });
}

void MainQueue::run() {
  std::unique_lock lock(state_->mutex);
  for (;;) {
    state_->changed.wait(lock, [this] { return state_->isStopped || !state_->blocks.empty(); });
    if (std::exchange(state_->isStopped, false)) return;
    auto block = std::move(state_->blocks.front());
    state_->blocks.pop_front();
    if (state_->blocks.empty()) state_->showWaiting();
    lock.unlock();
    callOut(block);
    block = nullptr;
    lock.lock();
  }
}

void MainQueue::stop() {
  const std::lock_guard lock(state_->mutex);
  state_->isStopped = true;
  state_->changed.notify_one();
}

int MainQueue::fileDescriptor() {
  const std::lock_guard lock(state_->mutex);
  if (state_->descriptor < 0) {
    state_->descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    state_->showWaiting();
  }
  return state_->descriptor;
}

void MainQueue::drain() {
  std::deque<std::function<void()>> blocks;
  {
    const std::lock_guard lock(state_->mutex);
    blocks.swap(state_->blocks);
    state_->showWaiting();
  }
  for (auto& block : blocks) {
    callOut(block);
    block = nullptr;
  }
}

}  // namespace QVPlatform
