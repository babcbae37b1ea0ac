#include <QVPlatform/Dispatch/OperationQueue.h>

#include <QVPlatform/Dispatch/Internal/Thread.h>
#include <QVPlatform/Foundation/ForkMutex.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <optional>
#include <thread>
#include <typeinfo>
#include <utility>

// Queue and thread share a State. `Work` in it is the list of operations: the running one, then the
// cancelled ones that are a mere number by now, then those that wait. Whoever adds an operation,
// resumes the queue or closes it wakes the thread; that waits until there is something to start,
// drops the cancelled ones at the head, runs the first operation without the mutex, and tells the
// observers of the new count. A change is told after the mutex is released, with the count that it
// led to, so that of changes on two threads the later count may be told first.
//
// What outside code could do to the queue decides the rest. Destroying an operation may call out,
// so that it is done without the mutex: an operation that leaves the list is first moved to where
// it outlives the lock. The queue may be destroyed by an operation that it runs: then the thread
// keeps the State until it ends. It may end the queue's thread: then another one takes over. And a
// fork() may come at any moment: the child gets another Work, and a thread that finds its own gone
// ends.

namespace QVPlatform {
namespace {

constexpr String kOperationCount = "operationCount"_string;

using OperationReference = std::shared_ptr<Operation>;

struct Observation {
  std::weak_ptr<KeyValueObserver> observer;
  std::weak_ptr<Object> queue;
  const void* context;
};

/// Never changed once it can be seen, so that telling of a change takes no memory.
using Observations = std::shared_ptr<const std::vector<Observation>>;

/// A new count and who is to be told of it; told without the mutex.
struct CountChange {
  Observations observations;
  std::size_t count;

  void tell() const {
    if (!observations) return;
    for (const Observation& observation : *observations) {
      const auto observer = observation.observer.lock();
      const auto queue = observation.queue.lock();
      if (!observer || !queue) continue;
      callOut([&] {
        observer->observeValueForKeyPathOfObjectChangeContext(kOperationCount, queue, count,
                                                              observation.context);
      });
    }
  }
};

/// One place of the list.
struct Place {
  OperationReference operation;
  std::uint64_t note = 0;  // the visitor's; here, since operations lie all over the memory
};

/// How many places ahead of a visit the processor is told to fetch one: a list is made of many
/// blocks, of which each lies somewhere else.
constexpr std::size_t kAhead = 64;

bool isSameKind(const Operation& one, const Operation& other) {
  return typeid(one) == typeid(other);
}

/// The operations of a queue, and what its thread and its users meet in.
struct Work {
  /// Some operations that were cancelled and leave the list: a few at a time, since there may be no
  /// memory for a list of them. To be destroyed without the mutex.
  struct Dropped {
    Dropped() = default;
    Dropped(Dropped&&) = default;
    Dropped& operator=(Dropped&&) = delete;
    ~Dropped() {
      for (const OperationReference& operation : operations) {
        if (operation) operation->releaseWork();
      }
    }

    std::array<OperationReference, 4> operations;
  };

  std::size_t count() const { return (running ? 1 : 0) + cancelledAtHead + waiting.size(); }

  bool hasCancelledAtHead() const {
    if (waiting.empty()) return false;
    // One that somebody holds keeps its identity, and one of another kind its place.
    const OperationReference& first = waiting.front().operation;
    if (!first->isCancelled() || first.use_count() > 1) return false;
    return !standIn || isSameKind(*standIn, *first);
  }

  /// Turns cancelled operations at the head into a number; the caller destroys what it gets.
  [[nodiscard]] Dropped compact() {
    Dropped dropped;
    for (OperationReference& place : dropped.operations) {
      if (!hasCancelledAtHead()) break;
      place = std::move(waiting.front().operation);
      waiting.pop_front();
      ++cancelledAtHead;
      if (!standIn) standIn = place;
    }
    return dropped;
  }

  std::condition_variable changed;
  std::condition_variable isOver;  // the running one
  OperationReference running;
  std::uint64_t runningNote = 0;
  std::thread::id runner;      // of the running one
  OperationReference standIn;  // one that was cancelled, in the place of all those in the number
  std::size_t cancelledAtHead = 0;
  std::deque<Place> waiting;
  bool hasThread = false;
  bool isIdle = false;
};

}  // namespace

/// What the queue shares with its thread, which may outlive it while an operation runs. Operations
/// are never destroyed under the mutex, since what they hold may call out when it goes.
struct OperationQueue::State {
  /// The child of a fork() has a queue of its own to fill. It leaves the parent's operations alone:
  /// the parent runs them, and destroying the copies might call out.
  static void beginAnew(void* state) {
    auto& own = *static_cast<State*>(state);
    own.mutex.assumeHeld();
    leaveToParent(std::move(own.work));
    own.work = std::make_unique<Work>();
  }

  CountChange countChange() const QV_REQUIRES(mutex) { return {observations, work->count()}; }

  void compactAll() QV_REQUIRES(mutex) {
    while (work->hasCancelledAtHead()) {
      auto dropped = std::make_optional(work->compact());
      const Unlocked unlocked(mutex);
      dropped.reset();
    }
  }

  bool canStart() const QV_REQUIRES(mutex) {
    return !isStopped && !isSuspended && (work->cancelledAtHead > 0 || !work->waiting.empty());
  }

  /// What the thread sleeps at, if it is to be woken: without the mutex, which it takes first and
  /// would go to sleep for again. Starts it where there is none.
  std::condition_variable* awaited(const std::shared_ptr<State>& self) QV_REQUIRES(mutex) {
    if (!canStart()) return nullptr;
    if (!work->hasThread) startThreadFor(self, false);
    return work->isIdle ? &work->changed : nullptr;
  }

  void startThreadFor(const std::shared_ptr<State>& self, bool isChangeUntold) QV_REQUIRES(mutex) {
    work->hasThread =
        startThread("QVOperations", [self, isChangeUntold] { self->run(self, isChangeUntold); });
  }

  // The thread. Nothing that it does here takes memory: an exception would be its end.

  void run(const std::shared_ptr<State>& self, bool isChangeUntold) {
    Lock lock(mutex);
    const Work* const own = work.get();
    try {
      if (isChangeUntold) tell();
      runAll(lock);
    } catch (...) {  // the host has ended the thread
      if (work.get() == own) leaveToAnother(self);
      throw;
    }
  }

  /// Ends, too, in the child of a fork() that an operation made: the queue gets another thread.
  void runAll(Lock& lock) QV_REQUIRES(mutex) {
    for (const Work* const own = work.get(); work.get() == own;) {
      work->isIdle = true;
      while (!isClosed && !canStart()) lock.wait(work->changed);
      work->isIdle = false;
      if (isClosed) return;
      dropCancelled();
      if (canStart()) runFirst();
    }
  }

  /// What is to be told of the operation that ended the thread is left to the next one, too: an
  /// observer might end this one once more.
  void leaveToAnother(const std::shared_ptr<State>& self) QV_REQUIRES(mutex) {
    const bool isChangeUntold = work->running != nullptr;
    startThreadFor(self, isChangeUntold);
    finishRunning();
  }

  /// Takes the running operation out of the list, and destroys it if nobody else holds it.
  void finishRunning() QV_REQUIRES(mutex) {
    OperationReference operation = std::move(work->running);
    work->isOver.notify_all();
    const Unlocked unlocked(mutex);
    operation.reset();
  }

  void dropCancelled() QV_REQUIRES(mutex) {
    compactAll();
    if (work->cancelledAtHead == 0) return;
    work->cancelledAtHead = 0;
    tell();
  }

  void runFirst() QV_REQUIRES(mutex) {
    if (work->waiting.empty()) return;
    work->runningNote = work->waiting.front().note;
    work->running = std::move(work->waiting.front().operation);
    work->waiting.pop_front();
    work->runner = std::this_thread::get_id();
    {
      Operation& operation = *work->running;
      const Unlocked unlocked(mutex);
      if (!operation.isCancelled()) callOut([&operation] { operation.main(); });
    }
    finishRunning();
    tell();
  }

  void tell() const QV_REQUIRES(mutex) {
    const CountChange change = countChange();
    const Unlocked unlocked(mutex);
    change.tell();
  }

  mutable ForkMutex mutex{beginAnew, this};
  std::unique_ptr<Work> work QV_GUARDED_BY(mutex) = std::make_unique<Work>();
  Observations observations QV_GUARDED_BY(mutex);
  bool isSuspended QV_GUARDED_BY(mutex) = false;
  bool isStopped QV_GUARDED_BY(mutex) = false;
  bool isClosed QV_GUARDED_BY(mutex) = false;
};

OperationQueue::OperationQueue() : state_(std::make_shared<State>()) {}

OperationQueue::~OperationQueue() {
  const Lock lock(state_->mutex);
  state_->isClosed = true;
  state_->work->changed.notify_one();
  while (!state_->work->waiting.empty()) {
    OperationReference operation = std::move(state_->work->waiting.front().operation);
    state_->work->waiting.pop_front();
    const Unlocked unlocked(state_->mutex);
    operation.reset();
  }
}

bool OperationQueue::addOperation(OperationReference operation) {
  if (!operation) return false;
  const auto state = state_;  // what runs may be the last to hold the queue
  std::optional<Work::Dropped> dropped;
  CountChange change;
  std::condition_variable* awaited = nullptr;
  {
    const Lock lock(state->mutex);
    Work& work = *state->work;
    dropped.emplace(work.compact());
    if (!callOut([&] { work.waiting.push_back({std::move(operation)}); })) return false;
    awaited = state->awaited(state);
    change = state->countChange();
  }
  if (awaited) awaited->notify_one();
  change.tell();
  return true;
}

std::vector<OperationReference> OperationQueue::operations() const {
  std::vector<OperationReference> list;
  const Lock lock(state_->mutex);
  const Work& work = *state_->work;
  list.reserve(work.count());
  if (work.running) list.push_back(work.running);
  list.insert(list.end(), work.cancelledAtHead, work.standIn);
  for (const Place& place : work.waiting) list.push_back(place.operation);
  return list;
}

std::size_t OperationQueue::operationCount() const {
  const Lock lock(state_->mutex);
  return state_->work->count();
}

OperationReference OperationQueue::operationAtIndex(std::size_t index) const {
  const Lock lock(state_->mutex);
  const Work& work = *state_->work;
  if (work.running && index-- == 0) return work.running;
  if (index < work.cancelledAtHead) return work.standIn;
  index -= work.cancelledAtHead;
  return index < work.waiting.size() ? work.waiting[index].operation : nullptr;
}

OperationReference OperationQueue::firstOperationPassingTest(
    const std::function<bool(const Operation&)>& test) const {
  const auto passes = [&test](const OperationReference& operation) {
    return !operation->isCancelled() && test(*operation);
  };
  std::optional<Work::Dropped> dropped;
  const Lock lock(state_->mutex);
  Work& work = *state_->work;
  dropped.emplace(work.compact());
  if (work.running && passes(work.running)) return work.running;
  for (const Place& place : work.waiting) {
    if (passes(place.operation)) return place.operation;
  }
  return nullptr;
}

void OperationQueue::visitOperations(
    const std::function<std::size_t(const Operation&, std::uint64_t& note)>& function) const {
  const Lock lock(state_->mutex);
  Work& work = *state_->work;
  const std::size_t count = work.waiting.size();
  std::size_t i = work.running ? function(*work.running, work.runningNote) : 0;
  while (i < count) {
    if (i + kAhead < count) __builtin_prefetch(&work.waiting[i + kAhead]);
    const std::size_t passed = function(*work.waiting[i].operation, work.waiting[i].note);
    i += 1 + std::min(passed, count - i);
  }
}

void OperationQueue::cancelAllOperations() {
  const Lock lock(state_->mutex);
  if (state_->work->running) state_->work->running->cancel();
  for (const Place& place : state_->work->waiting) place.operation->cancel();
  state_->compactAll();
}

void OperationQueue::setSuspended(bool isSuspended) {
  const auto state = state_;  // as above
  std::condition_variable* awaited = nullptr;
  {
    const Lock lock(state->mutex);
    state->isSuspended = isSuspended;
    awaited = state->awaited(state);
  }
  if (awaited) awaited->notify_one();
}

bool OperationQueue::isSuspended() const {
  const Lock lock(state_->mutex);
  return state_->isSuspended;
}

bool OperationQueue::stopWithin(std::chrono::milliseconds timeout) {
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24);  // no sum overflows
  const auto deadline = std::chrono::steady_clock::now() + std::min(timeout, kLongest);
  const auto state = state_;  // what runs may be the last to hold the queue
  Lock lock(state->mutex);
  state->isStopped = true;
  Work& work = *state->work;
  const bool mayWait = work.runner != std::this_thread::get_id();
  while (mayWait && work.running && std::chrono::steady_clock::now() < deadline) {
    lock.waitUntil(work.isOver, deadline);
  }
  return work.running == nullptr;
}

bool OperationQueue::isStopped() const {
  const Lock lock(state_->mutex);
  return state_->isStopped;
}

void OperationQueue::addObserverForOperationCount(std::weak_ptr<KeyValueObserver> observer,
                                                  const void* context) {
  Observations replaced;
  callOut([&] {
    const Lock lock(state_->mutex);
    auto extended = state_->observations
                        ? std::make_shared<std::vector<Observation>>(*state_->observations)
                        : std::make_shared<std::vector<Observation>>();
    extended->push_back({std::move(observer), weak_from_this(), context});
    replaced = std::exchange(state_->observations, std::move(extended));
  });
}

}  // namespace QVPlatform
