#pragma once

#include <QVPlatform/Dispatch/Operation.h>
#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/KeyValueObserver.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace QVPlatform {

/// Runs operations one after the other, in the order in which they were added, on a thread of its
/// own, which starts with the first operation that can run.
///
/// An operation belongs to the queue from addOperation() until it has run; the one that is running
/// is the first of the list. While the queue is suspended none starts, but one that is running goes
/// on. Cancelled operations stay in the list until their turn comes.
///
/// A suspended queue may collect any number of cancelled operations, so it does not keep those at
/// its head that nobody else holds: it counts them, and keeps the first of them only, which has
/// given up its work (releaseWork()). In the list that operations() answers, that one stands in the
/// place of each of them. It stands for operations of its own class only, so that who casts what is
/// in the list finds the class that was added.
///
/// Threads: every operation may be called from any thread. When an operation, or an observer that
/// it posts to, ends the queue's thread (pthread_exit(), cancellation), that operation is over and
/// the next ones run on another thread. Lifetime: when the queue is destroyed, operations that wait
/// are dropped, one that is running ends by itself. In the child of a fork() the queue is empty, as
/// its operations are the parent's, and has a thread of its own.
class QVPLATFORM_EXPORT OperationQueue : public Object {
 public:
  OperationQueue();
  ~OperationQueue() override;

  /// Adds the operation at the end. False, and nothing was added, for null, and with a line on the
  /// console log when memory is short. If the system has no thread to give, the next call that
  /// finds work to start asks for one again.
  bool addOperation(std::shared_ptr<Operation> operation);
  /// The operations as they stand now, in order, with the one that is running and the cancelled
  /// ones. Throws std::bad_alloc when there is no memory for the list: an empty one would pass for
  /// an empty queue.
  std::vector<std::shared_ptr<Operation>> operations() const;
  /// How many there are in operations().
  std::size_t operationCount() const;
  /// The one at that place of operations(), or null past the end. Copies no list.
  std::shared_ptr<Operation> operationAtIndex(std::size_t index) const;
  /// The first operation that is not cancelled and passes the test, or null. Copies no list; the
  /// time to pass over cancelled operations at the head does not grow with their number. The test
  /// runs under the queue's lock, so it must be quick and must not use the queue.
  std::shared_ptr<Operation> firstOperationPassingTest(
      const std::function<bool(const Operation&)>& test) const;
  /// Calls the function with each operation in the list, in order, but for those that it only
  /// counts, and with a number that is the function's: it finds there what it left at its last
  /// visit, 0 at first. It answers how many of the next operations it need not see. Copies no list
  /// and destroys nothing. The function, too, runs under the queue's lock; these two are the only
  /// places where the kit calls somebody's function under one.
  void visitOperations(
      const std::function<std::size_t(const Operation&, std::uint64_t& note)>& function) const;
  /// Cancels every operation in the list.
  void cancelAllOperations();

  /// New queues are not suspended.
  void setSuspended(bool isSuspended);
  bool isSuspended() const;

  /// From now on starts no operation, whatever setSuspended() says, and waits until the one that is
  /// running has left the list, but no longer than `timeout`, which counts as a day if it is more.
  /// Whether none is running any more. May
  /// be called again, to wait on; on the queue's own thread it does not wait, as an operation is
  /// running there.
  bool stopWithin(std::chrono::milliseconds timeout);
  bool isStopped() const;

  /// From now on tells the observer of every change of "operationCount", for as long as it lives;
  /// asked twice, it tells twice. The change given is the new count. It is called without any lock,
  /// on the thread that changed the count: the one that added an operation or the queue's own.
  /// Operations that are dropped together are one change. What an observer throws is stopped with a
  /// line on the console log; when memory is short, there is such a line and nobody is told.
  void addObserverForOperationCount(std::weak_ptr<KeyValueObserver> observer, const void* context);

 private:
  struct State;

  const std::shared_ptr<State> state_;
};

}  // namespace QVPlatform
