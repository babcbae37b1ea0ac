#include <QVPlatform/Dispatch/CallGate.h>

#include <QVPlatform/Dispatch/Internal/Stripe.h>
#include <QVPlatform/Foundation/Internal/ForkGeneration.h>

#include <numeric>
#include <tuple>

namespace QVPlatform {

CallGate::CallGate() noexcept : forkGeneration_(forkGeneration()) {}

// Who enters counts itself and then looks whether the gate is closed; who closes the gate says so
// and then looks at the counts. Of two who each write one variable and then read the other's at
// least one must see the other (Dekker's pattern), and only sequential consistency promises that:
// with weaker orders both might read what was there before, and a call would run in a closed gate.
// The same holds of who leaves and of who is about to sleep until somebody leaves.

CallGate::Stay::Stay(CallGate& gate) noexcept
    : gate_(gate), underWay_(gate.stripes_[stripeOfThisThread()].callsUnderWay) {
  ++underWay_;
}

CallGate::Stay::~Stay() {
  --underWay_;
  if (gate_.isClosed_) gate_.tellOfLeaving();
}

CallGate::Passage::Passage(CallGate& gate) noexcept
    : outer_(static_cast<const Passage*>(postingThread.innermostPassage)), stay_(gate) {
  postingThread.innermostPassage = this;
}

CallGate::Passage::~Passage() { postingThread.innermostPassage = outer_; }

unsigned CallGate::Passage::countOnThisThread(const CallGate& gate) noexcept {
  unsigned count = 0;
  const auto* passage = static_cast<const Passage*>(postingThread.innermostPassage);
  for (; passage; passage = passage->outer_) {
    if (&passage->stay_.gate() == &gate) ++count;
  }
  return count;
}

void CallGate::tellOfLeaving() noexcept {
  ++left_;
  left_.notify_all();
}

/// Never less than the calls under way that were there before the gate was closed: each of them
/// stays in its own stripe until it ends.
unsigned CallGate::callsUnderWay() const noexcept {
  static_assert(std::tuple_size_v<decltype(stripes_)> == kStripes);
  static_assert(alignof(Stripe) == kCacheLine);
  return std::accumulate(
      stripes_.begin(), stripes_.end(), 0U,
      [](unsigned sum, const Stripe& stripe) { return sum + stripe.callsUnderWay; });
}

bool CallGate::isIdle() const noexcept {
  return isClosed_ && forkGeneration_ == forkGeneration() && callsUnderWay() == 0;
}

void CallGate::close() {
  isClosed_ = true;
  if (forkGeneration_ != forkGeneration()) return;
  const unsigned own = Passage::countOnThisThread(*this);
  for (;;) {
    const unsigned left = left_;
    if (callsUnderWay() <= own) return;
    left_.wait(left);
  }
}

}  // namespace QVPlatform
