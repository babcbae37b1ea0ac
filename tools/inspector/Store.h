#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "inspector/Hit.h"
#include "inspector/Numbering.h"

/// Is told of what changes in the store. The hit is valid during the call.
class StoreObserver {
 public:
  virtual ~StoreObserver() = default;
  virtual void onAdded(const Hit& hit) = 0;
  /// The outcome or the pin is another one.
  virtual void onChanged(const Hit& hit) = 0;
  virtual void onCleared() = 0;
};

/// The hits, as many of the latest as the limits allow, and besides them those that are pinned.
class Store {
 public:
  struct Limits {
    std::size_t hits;
    std::size_t bytes;
  };
  /// Pinned hits may be so many, and take half as much memory as all.
  static constexpr std::size_t kMaximumPins = 1000;

  Store(Limits limits, Numbering numbering) : limits_(limits), numbering_(std::move(numbering)) {}

  /// Observers outlive the store's use.
  void addObserver(StoreObserver& observer) { observers_.push_back(&observer); }

  /// Gives the hit its sequence and its marks, and makes room for it. Answers the sequence.
  std::uint64_t add(Hit hit);
  /// Does nothing if there is no such hit any more.
  void setOutcome(std::uint64_t sequence, Outcome outcome, int status, int elapsed);
  /// False if there is no such hit, or if too many are pinned already.
  bool setPinned(std::uint64_t sequence, bool isPinned);
  /// Drops all hits but the pinned ones.
  void clear();

  /// Nullptr if there is no such hit any more.
  const Hit* find(std::uint64_t sequence) const;
  /// The first hit with that sequence or a later one; nullptr at the end.
  const Hit* findFrom(std::uint64_t sequence) const;
  /// All hits before this sequence are gone, but for the pinned ones.
  std::uint64_t first() const { return first_; }
  /// How many hits were dropped to make room for others.
  std::uint64_t dropped() const { return dropped_; }

 private:
  Hit* findMutable(std::uint64_t sequence);
  bool hasRoomForPin(const Hit& hit) const;
  void countPin(const Hit& hit, bool isPinned);
  /// Takes the oldest hit out of the ring.
  void dropOldest();

  const Limits limits_;
  Numbering numbering_;
  std::vector<StoreObserver*> observers_;
  std::deque<Hit> ring_;  // without a gap: the first one has the sequence first_
  std::uint64_t first_ = 1;
  std::map<std::uint64_t, Hit> keptPins_;  // those that left the ring
  std::size_t pins_ = 0;                   // in both
  std::size_t pinnedBytes_ = 0;
  std::size_t bytes_ = 0;  // of the ring
  std::uint64_t dropped_ = 0;
};
