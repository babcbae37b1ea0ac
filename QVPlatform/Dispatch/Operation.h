#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>

#include <atomic>

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
  void cancel() noexcept { isCancelled_ = true; }
  bool isCancelled() const noexcept { return isCancelled_; }

 private:
  std::atomic<bool> isCancelled_{false};
};

}  // namespace QVPlatform
