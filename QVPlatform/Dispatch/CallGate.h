#pragma once

#include <QVPlatform/Export.h>

#include <atomic>

namespace QVPlatform {

/// Lets calls through until it is closed, and knows when the last of them has ended, so that what
/// they use can be destroyed.
///
/// Threads: all operations may be called from any thread; calls may nest. The gate itself must
/// outlive the calls in it.
class QVPLATFORM_EXPORT CallGate {
 public:
  CallGate() noexcept;
  CallGate(const CallGate&) = delete;
  CallGate& operator=(const CallGate&) = delete;

  /// Calls `call` on the calling thread unless the gate is closed.
  template <class Call>
  void enter(Call&& call) {
    const Passage passage(*this);
    if (!isClosed_) call();
  }

  /// Lets no further call through and returns when none is under way on any other thread. Calls
  /// that the calling thread is itself in are not waited for. In the child of a fork() a gate that
  /// was made before it is closed without waiting: of the calls that were under way in the parent
  /// none will ever end.
  void close();
  /// As close(), without waiting: wait with close() afterwards.
  void beginClosing() noexcept { isClosed_ = true; }
  bool isClosed() const noexcept { return isClosed_; }

 private:
  /// A call under way on this thread. They form a stack, since calls nest.
  class QVPLATFORM_EXPORT Passage {
   public:
    explicit Passage(CallGate& gate) noexcept;
    ~Passage();
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    static unsigned countOnThisThread(const CallGate& gate) noexcept;

   private:
    CallGate& gate_;
    const Passage* const outer_;
  };

  const unsigned forkGeneration_;
  std::atomic<unsigned> callsUnderWay_{0};
  std::atomic<bool> isClosed_{false};
};

}  // namespace QVPlatform
