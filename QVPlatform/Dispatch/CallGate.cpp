#include <QVPlatform/Dispatch/CallGate.h>

#include <QVPlatform/Foundation/Internal/ForkGeneration.h>

namespace QVPlatform {
namespace {

thread_local constinit const void* innermostPassage = nullptr;

}  // namespace

CallGate::CallGate() noexcept : forkGeneration_(forkGeneration()) {}

CallGate::Passage::Passage(CallGate& gate) noexcept
    : gate_(gate), outer_(static_cast<const Passage*>(innermostPassage)) {
  innermostPassage = this;
  ++gate_.callsUnderWay_;
}

CallGate::Passage::~Passage() {
  innermostPassage = outer_;
  // Who closes the gate sets isClosed_ and then reads the count; here it is the other way round, so
  // that one of the two always sees the other.
  --gate_.callsUnderWay_;
  if (gate_.isClosed_) gate_.callsUnderWay_.notify_all();
}

unsigned CallGate::Passage::countOnThisThread(const CallGate& gate) noexcept {
  unsigned count = 0;
  const auto* passage = static_cast<const Passage*>(innermostPassage);
  for (; passage; passage = passage->outer_) {
    if (&passage->gate_ == &gate) ++count;
  }
  return count;
}

void CallGate::close() {
  isClosed_ = true;
  if (forkGeneration_ != forkGeneration()) return;
  const unsigned own = Passage::countOnThisThread(*this);
  for (unsigned underWay; (underWay = callsUnderWay_) > own;) callsUnderWay_.wait(underWay);
}

}  // namespace QVPlatform
