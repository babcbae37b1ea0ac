#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>

#include <atomic>
#include <cstdint>

namespace QVPlatform {

/// A piece of work that an OperationQueue runs once.
///
/// Threads: main() runs on the queue's thread; the others may be called from any thread.
class QVPLATFORM_EXPORT Operation : public Object {
 public:
  /// The work; by default none. A queue passes over operations that are cancelled before their turn
  /// comes; what a cancellation after that means is for main() to say.
  virtual void main();

  /// Gives up what only main() would have needed. A queue calls it, on any thread, when the
  /// operation was cancelled and nobody else holds it; by default there is nothing to give up.
  virtual void releaseWork();

  /// Marks the operation as cancelled, for ever. It stays in its queue until its turn comes.
  void cancel() noexcept {
    isCancelled_ = true;
    mayChange();
  }
  bool isCancelled() const noexcept { return isCancelled_; }

  /// For the one who keeps something that is made of what operations hold, and does not want to
  /// look at each of them again: a new number for the operation, which is never 0. To be asked for
  /// before the operation is looked at.
  std::uint64_t newMark() const noexcept;
  /// Whether the operation may have changed since it got that number: it was cancelled, for
  /// example. Now and then it has not.
  static bool mayHaveChangedSince(std::uint64_t mark) noexcept;
  /// The same of all operations that got that number or a later one.
  static bool mayAnyHaveChangedSince(std::uint64_t mark) noexcept;

 protected:
  /// To be called after each change of what the operation holds, and when it has handed out
  /// something that others can change: then it may change for ever.
  void mayChange() const noexcept;

 private:
  std::atomic<bool> isCancelled_{false};
  mutable std::atomic<std::uint64_t> mark_{0};
};

}  // namespace QVPlatform
