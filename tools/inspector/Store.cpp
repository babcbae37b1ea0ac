#include "inspector/Store.h"

#include <utility>

std::uint64_t Store::add(Hit hit) {
  hit.sequence = first_ + ring_.size();
  numbering_.mark(hit);
  hit.isPinned = hit.isPinned && hasRoomForPin(hit);
  if (hit.isPinned) countPin(hit, true);
  bytes_ += hit.cost();
  ring_.push_back(std::move(hit));
  while (ring_.size() > limits_.hits || (bytes_ > limits_.bytes && ring_.size() > 1)) {
    dropped_ += ring_.front().isPinned ? 0 : 1;
    dropOldest();
  }
  for (auto* const observer : observers_) observer->onAdded(ring_.back());
  return ring_.back().sequence;
}

void Store::dropOldest() {
  Hit& oldest = ring_.front();
  bytes_ -= oldest.cost();
  numbering_.forget(oldest);
  if (oldest.isPinned) keptPins_.emplace(oldest.sequence, std::move(oldest));
  ring_.pop_front();
  ++first_;
}

void Store::setOutcome(std::uint64_t sequence, Outcome outcome, int status, int elapsed) {
  Hit* const hit = findMutable(sequence);
  if (hit == nullptr) return;
  hit->outcome = outcome;
  hit->status = status;
  hit->elapsed = elapsed;
  for (auto* const observer : observers_) observer->onChanged(*hit);
}

bool Store::setPinned(std::uint64_t sequence, bool isPinned) {
  Hit* const hit = findMutable(sequence);
  if (hit == nullptr) return false;
  if (hit->isPinned == isPinned) return true;
  if (isPinned && !hasRoomForPin(*hit)) return false;
  hit->isPinned = isPinned;
  countPin(*hit, isPinned);
  for (auto* const observer : observers_) observer->onChanged(*hit);
  if (!isPinned) keptPins_.erase(sequence);
  return true;
}

bool Store::hasRoomForPin(const Hit& hit) const {
  return pins_ < kMaximumPins && pinnedBytes_ + hit.cost() <= limits_.bytes / 2;
}

void Store::countPin(const Hit& hit, bool isPinned) {
  pins_ = isPinned ? pins_ + 1 : pins_ - 1;
  pinnedBytes_ = isPinned ? pinnedBytes_ + hit.cost() : pinnedBytes_ - hit.cost();
}

void Store::clear() {
  while (!ring_.empty()) dropOldest();
  dropped_ = 0;
  for (auto* const observer : observers_) observer->onCleared();
}

Hit* Store::findMutable(std::uint64_t sequence) { return const_cast<Hit*>(find(sequence)); }

const Hit* Store::find(std::uint64_t sequence) const {
  const Hit* const hit = findFrom(sequence);
  return hit != nullptr && hit->sequence == sequence ? hit : nullptr;
}

const Hit* Store::findFrom(std::uint64_t sequence) const {
  if (sequence < first_) {
    const auto pin = keptPins_.lower_bound(sequence);
    if (pin != keptPins_.end()) return &pin->second;
    sequence = first_;
  }
  return sequence - first_ < ring_.size() ? &ring_[sequence - first_] : nullptr;
}
