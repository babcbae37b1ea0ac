#include <QVPlatform/Foundation/OperationQueue.h>

#include <QVPlatform/Dispatch/Thread.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace QVPlatform {
namespace {

constinit String::Literal operationCountText{"operationCount"};
constexpr String kOperationCount{operationCountText};

using OperationReference = std::shared_ptr<Operation>;

struct Observation {
  std::weak_ptr<KeyValueObserver> observer;
  std::weak_ptr<Object> queue;
  const void* context;
};

const OperationReference& cancelledStandIn() {
  static const auto& standIn = *new OperationReference([] {
    auto operation = std::make_shared<Operation>();
    operation->cancel();
    return operation;
  }());
  return standIn;
}

}  // namespace

/// What the queue shares with its thread, which may outlive it while an operation runs. Operations
/// are never destroyed under the mutex, since what they hold may call out when it goes.
struct OperationQueue::State {
  /// A new count and who is to be told of it; told without the mutex.
  struct CountChange {
    std::vector<Observation> observations;
    std::size_t count;

    void tell() const {
      for (const Observation& observation : observations) {
        const auto observer = observation.observer.lock();
        const auto queue = observation.queue.lock();
        if (!observer || !queue) continue;
        observer->observeValueForKeyPathOfObjectChangeContext(kOperationCount, queue, count,
                                                              observation.context);
      }
    }
  };

  // The following require the mutex.

  std::size_t count() const { return (running ? 1 : 0) + cancelledAtHead + waiting.size(); }

  CountChange countChange() const { return {observations, count()}; }

  /// Turns cancelled operations at the head into a number; the caller destroys what it gets.
  [[nodiscard]] std::vector<OperationReference> compact() {
    std::vector<OperationReference> dropped;
    while (!waiting.empty() && waiting.front()->isCancelled() && waiting.front().use_count() == 1) {
      dropped.push_back(std::move(waiting.front()));
      waiting.pop_front();
      ++cancelledAtHead;
    }
    return dropped;
  }

  bool canStart() const { return !isSuspended && (cancelledAtHead > 0 || !waiting.empty()); }

  void wakeThread(const std::shared_ptr<State>& self) {
    if (!canStart()) return;
    if (!hasThread) hasThread = startThread("QVOperations", [self] { self->run(); });
    if (isIdle) changed.notify_one();
  }

  // The thread.

  void run() {
    std::unique_lock lock(mutex);
    for (;;) {
      isIdle = true;
      changed.wait(lock, [this] { return isClosed || canStart(); });
      isIdle = false;
      if (isClosed) return;
      dropCancelled(lock);
      if (canStart()) runFirst(lock);
    }
  }

  void dropCancelled(std::unique_lock<std::mutex>& lock) {
    auto dropped = compact();
    if (cancelledAtHead == 0) return;
    cancelledAtHead = 0;
    const CountChange change = countChange();
    lock.unlock();
    dropped.clear();
    callOut([&change] { change.tell(); });
    lock.lock();
  }

  void runFirst(std::unique_lock<std::mutex>& lock) {
    running = std::move(waiting.front());
    waiting.pop_front();
    OperationReference operation = running;
    lock.unlock();
    if (!operation->isCancelled()) callOut([&operation] { operation->main(); });
    lock.lock();
    running.reset();
    const CountChange change = countChange();
    lock.unlock();
    operation.reset();
    callOut([&change] { change.tell(); });
    lock.lock();
  }

  mutable std::mutex mutex;
  std::condition_variable changed;
  OperationReference running;
  std::size_t cancelledAtHead = 0;
  std::deque<OperationReference> waiting;
  std::vector<Observation> observations;
  bool isSuspended = false;
  bool isClosed = false;
  bool hasThread = false;
  bool isIdle = false;
};

OperationQueue::OperationQueue() : state_(std::make_shared<State>()) {}

OperationQueue::~OperationQueue() {
  std::deque<OperationReference> dropped;
  const std::lock_guard lock(state_->mutex);
  dropped.swap(state_->waiting);
  state_->isClosed = true;
  state_->changed.notify_one();
}

void OperationQueue::addOperation(OperationReference operation) {
  if (!operation) return;
  std::vector<OperationReference> dropped;
  std::unique_lock lock(state_->mutex);
  dropped = state_->compact();
  state_->waiting.push_back(std::move(operation));
  state_->wakeThread(state_);
  const State::CountChange change = state_->countChange();
  lock.unlock();
  change.tell();
}

std::vector<OperationReference> OperationQueue::operations() const {
  std::vector<OperationReference> list;
  const std::lock_guard lock(state_->mutex);
  list.reserve(state_->count());
  if (state_->running) list.push_back(state_->running);
  list.insert(list.end(), state_->cancelledAtHead, cancelledStandIn());
  list.insert(list.end(), state_->waiting.begin(), state_->waiting.end());
  return list;
}

std::size_t OperationQueue::operationCount() const {
  const std::lock_guard lock(state_->mutex);
  return state_->count();
}

OperationReference OperationQueue::operationAtIndex(std::size_t index) const {
  const std::lock_guard lock(state_->mutex);
  if (state_->running && index-- == 0) return state_->running;
  if (index < state_->cancelledAtHead) return cancelledStandIn();
  index -= state_->cancelledAtHead;
  return index < state_->waiting.size() ? state_->waiting[index] : nullptr;
}

OperationReference OperationQueue::firstOperationPassingTest(
    const std::function<bool(const Operation&)>& test) const {
  const auto passes = [&test](const OperationReference& operation) {
    return !operation->isCancelled() && test(*operation);
  };
  std::vector<OperationReference> dropped;
  const std::lock_guard lock(state_->mutex);
  dropped = state_->compact();
  if (state_->running && passes(state_->running)) return state_->running;
  for (const OperationReference& operation : state_->waiting) {
    if (passes(operation)) return operation;
  }
  return nullptr;
}

void OperationQueue::cancelAllOperations() {
  std::vector<OperationReference> dropped;
  const std::lock_guard lock(state_->mutex);
  if (state_->running) state_->running->cancel();
  for (const OperationReference& operation : state_->waiting) operation->cancel();
  dropped = state_->compact();
}

void OperationQueue::setSuspended(bool isSuspended) {
  const std::lock_guard lock(state_->mutex);
  state_->isSuspended = isSuspended;
  state_->wakeThread(state_);
}

bool OperationQueue::isSuspended() const {
  const std::lock_guard lock(state_->mutex);
  return state_->isSuspended;
}

void OperationQueue::addObserverForOperationCount(std::weak_ptr<KeyValueObserver> observer,
                                                  const void* context) {
  const std::lock_guard lock(state_->mutex);
  state_->observations.push_back({std::move(observer), weak_from_this(), context});
}

}  // namespace QVPlatform
