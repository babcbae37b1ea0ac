#include <QVPlatform/Dispatch/Operation.h>

#include <array>

namespace QVPlatform {
namespace {

using Mark = std::atomic<std::uint64_t>;

constinit Mark latestMark{0};

/// The latest of the marks that may have changed, of those that leave the same remainder: all the
/// earlier ones count as changed, too. So nothing need be cleared away, nor known of an operation
/// that is gone.
constinit std::array<Mark, 1024> changed{};
constinit Mark latestOfAllChanges{0};

Mark& latestChange(std::uint64_t mark) { return changed[mark % changed.size()]; }

void raise(Mark& latest, std::uint64_t mark) {
  std::uint64_t known = latest;
  while (known < mark && !latest.compare_exchange_weak(known, mark)) continue;
}

}  // namespace

void Operation::main() {}

void Operation::releaseWork() {}

// Who changes something does so before looking at the mark, who takes a mark does so before looking
// at what may change: so one of the two notices the other.

std::uint64_t Operation::newMark() const noexcept { return mark_ = ++latestMark; }

bool Operation::mayHaveChangedSince(std::uint64_t mark) noexcept {
  return latestChange(mark) >= mark;
}

bool Operation::mayAnyHaveChangedSince(std::uint64_t mark) noexcept {
  return latestOfAllChanges >= mark;
}

void Operation::mayChange() const noexcept {
  const std::uint64_t mark = mark_;
  raise(latestChange(mark), mark);
  raise(latestOfAllChanges, mark);
}

}  // namespace QVPlatform
