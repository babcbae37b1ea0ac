#pragma once

#include <QVPlatform/Export.h>

#include <array>
#include <atomic>

namespace QVPlatform {

/// Lets calls through until it is closed, and knows when the last of them has ended, so that what
/// they use can be destroyed.
///
/// Threads: all operations may be called from any thread; calls may nest. The gate itself must
/// outlive the calls in it. Threads that enter at once hardly slow each other down, for which a
/// gate takes some 320 bytes; closing it takes longer.
class QVPLATFORM_EXPORT CallGate {
 public:
  CallGate() noexcept;
  CallGate(const CallGate&) = delete;
  CallGate& operator=(const CallGate&) = delete;

  /// Calls `call` on the calling thread and answers true, unless the gate is closed.
  template <class Call>
  bool enter(Call&& call) {
    const Passage passage(*this);
    if (isClosed_) return false;
    call();
    return true;
  }

  /// As enter(), a little quicker, for a call that neither enters nor closes any gate.
  template <class Call>
  bool enterBriefly(Call&& call) {
    const Stay stay(*this);
    if (isClosed_) return false;
    call();
    return true;
  }

  /// Lets no further call through and returns when none is under way on any other thread. Calls
  /// that the calling thread is itself in are not waited for. In the child of a fork() a gate that
  /// was made before it is closed without waiting: of the calls that were under way in the parent
  /// none will ever end.
  void close();
  /// As close(), without waiting: wait with close() afterwards.
  void beginClosing() noexcept { isClosed_ = true; }
  bool isClosed() const noexcept { return isClosed_; }
  /// Whether the gate is closed and no call is under way in it, on any thread. Never so in the
  /// child of a fork() for a gate that was made before it.
  bool isIdle() const noexcept;
  /// Lets calls through again. Requires an idle gate, and that no thread is in close().
  void open() noexcept { isClosed_ = false; }

 private:
  /// A call under way, counted.
  class QVPLATFORM_EXPORT Stay {
   public:
    explicit Stay(CallGate& gate) noexcept;
    ~Stay();
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

    const CallGate& gate() const noexcept { return gate_; }

   private:
    CallGate& gate_;
    std::atomic<unsigned>& underWay_;
  };
  /// A call under way on this thread. They form a stack, since calls nest.
  class QVPLATFORM_EXPORT Passage {
   public:
    explicit Passage(CallGate& gate) noexcept;
    ~Passage();
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    static unsigned countOnThisThread(const CallGate& gate) noexcept;

   private:
    const Passage* const outer_;
    const Stay stay_;
  };
  /// The calls of some of the threads, in a cache line of their own.
  struct alignas(64) Stripe {
    std::atomic<unsigned> callsUnderWay{0};
  };

  void tellOfLeaving() noexcept;
  unsigned callsUnderWay() const noexcept;

  const unsigned forkGeneration_;
  std::atomic<bool> isClosed_{false};
  std::atomic<unsigned> left_{0};  // counts calls that ended while the gate was closed
  std::array<Stripe, 4> stripes_;
};

}  // namespace QVPlatform
