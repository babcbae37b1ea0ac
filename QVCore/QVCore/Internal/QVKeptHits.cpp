#include <QVCore/Internal/QVKeptHits.h>

#include <QVCore/QVHTTPOperation.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

using QVPlatform::Dictionary;
using QVPlatform::Operation;
using QVPlatform::OperationQueue;

namespace {

/// How many of the next operations need no look.
constexpr std::size_t kNext = 0;
constexpr std::size_t kNone = SIZE_MAX;

}  // namespace

// Under the queue's lock nothing is destroyed that may call out: the data goes where it outlives
// it.

void QVKeptHits::look(const OperationQueue& queue, std::vector<Dictionary>& data) {
  queue.visitOperations([&](const Operation& operation, Mark&) {
    const auto* hit = dynamic_cast<const QVHTTPOperation*>(&operation);
    if (hit && !hit->isCancelled()) data.push_back(hit->data().first);
    return kNext;
  });
}

void QVKeptHits::look(const OperationQueue& queue, Change& change) const {
  if (!lookAtEnds(queue, change)) lookAtAll(queue, change);
}

/// For what nearly always happens: hits have left at the head of the queue and joined at its end,
/// and nothing else has changed. Then those that stayed are as they were if the first and the last
/// of them are in their places, since a queue is not changed in between. False, with nothing found,
/// when that is not so.
bool QVKeptHits::lookAtEnds(const OperationQueue& queue, Change& change) const {
  std::size_t visits = 0;
  bool hasFound = false;
  queue.visitOperations([&](const Operation& operation, Mark& mark) {
    ++visits;
    if (visits == 1) {
      change.first = placeOf(mark);
      change.stayed = marks_.size() - change.first;
      if (change.stayed == 0 || Operation::mayAnyHaveChangedSince(mark)) return kNone;
      hasFound = change.stayed == 1;
      return hasFound ? kNext : change.stayed - 2;
    }
    if (!hasFound) {
      hasFound = mark == marks_.back();
      return hasFound ? kNext : kNone;
    }
    mark = join(operation, change);
    return kNext;
  });
  if (!hasFound) change.first = change.stayed = 0;
  return hasFound;
}

void QVKeptHits::lookAtAll(const OperationQueue& queue, Change& change) const {
  queue.visitOperations([&](const Operation& operation, Mark& mark) {
    if (isInPlace(operation, mark, change)) {
      ++change.stayed;
    } else {
      mark = join(operation, change);
    }
    return kNext;
  });
}

/// Where in the list the hit with the mark is; its end, if it is not there.
std::size_t QVKeptHits::placeOf(Mark mark) const {
  const auto found = std::lower_bound(marks_.begin(), marks_.end(), mark);
  const bool isThere = found != marks_.end() && *found == mark;
  return isThere ? static_cast<std::size_t>(found - marks_.begin()) : marks_.size();
}

/// Whether the hit is the next one in the list, as it was encoded. The first one may stand anywhere
/// there: those before it have left.
bool QVKeptHits::isInPlace(const Operation& operation, Mark mark, Change& change) const {
  if (mark == 0 || !change.joined.empty()) return false;
  const std::size_t place = change.stayed == 0 ? placeOf(mark) : change.first + change.stayed;
  if (place == marks_.size() || marks_[place] != mark) return false;
  if (Operation::mayHaveChangedSince(mark) && !isAsEncoded(operation, place, change)) return false;
  if (change.stayed == 0) change.first = place;
  return true;
}

/// Whether the hit that has a mark waits still, with the same data.
bool QVKeptHits::isAsEncoded(const Operation& operation, std::size_t index, Change& change) const {
  change.seen.push_back(static_cast<const QVHTTPOperation&>(operation).data().first.snapshot());
  return !operation.isCancelled() && change.seen.back() == archiver_.message(index);
}

/// Gives the hit its mark; 0 for what does not wait.
QVKeptHits::Mark QVKeptHits::join(const Operation& operation, Change& change) {
  const auto* hit = dynamic_cast<const QVHTTPOperation*>(&operation);
  if (!hit) return 0;
  const Mark mark = hit->newMark();
  if (hit->isCancelled()) return 0;
  const auto [data, isShared] = hit->data();
  if (isShared) hit->mayChange();
  change.joined.push_back({data.snapshot(), mark});
  return mark;
}

std::vector<std::string_view> QVKeptHits::encode(Change& change) {
  std::vector<std::string_view> pieces;
  try {
    if (update(change)) pieces = archiver_.archive();
  } catch (const std::bad_alloc&) {
    // As with hits of another kind.
  }
  if (pieces.empty()) {
    archiver_.keep(0, 0);
    marks_.clear();
  }
  return pieces;
}

bool QVKeptHits::update(Change& change) {
  const auto at = [this](std::size_t i) { return marks_.begin() + static_cast<std::ptrdiff_t>(i); };
  marks_.erase(at(change.first + change.stayed), marks_.end());
  marks_.erase(marks_.begin(), at(change.first));
  if (!archiver_.keep(change.first, change.stayed)) return false;
  for (auto& [data, mark] : change.joined) {
    if (!archiver_.add(std::move(data))) return false;
    marks_.push_back(mark);
  }
  return true;
}
