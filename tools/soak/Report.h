#pragma once

#include <array>
#include <cstdint>

#include "soak/Judge.h"
#include "soak/Vitals.h"

/// The table at the end, over all lanes.
class Report {
 public:
  void add(const History& history);
  /// Of the process that lasts.
  void add(const Vitals& vitals);
  /// Prints the table, and the first faults with the histories of their hits. True without faults.
  bool print() const;

 private:
  void addHit(const Judge& judge, const History& history, HitID id, const Hit& hit);
  /// `text` tells more than the kind; shown for the first of each kind.
  void addFault(const std::string& kind, const std::string& text);
  void printRules(const char* title, Rule first, Rule last) const;

  std::array<std::uint64_t, kRuleCount> rules_{};
  std::uint64_t processes_ = 0;
  std::uint64_t posted_ = 0;
  std::uint64_t receivedOnce_ = 0;
  std::uint64_t receivedMore_ = 0;
  std::uint64_t answered_ = 0;
  std::uint64_t failed_ = 0;
  std::uint64_t failedUnreceived_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t waiting_ = 0;
  std::map<std::string, std::uint64_t> faults_;
  std::string shown_;
  Vitals::Sample early_{};
  Vitals::Sample late_{};
};
