#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "inspector/Hit.h"

/// Finds the number that the sender gave a hit, and whether it came before or out of order. Numbers
/// of different paths, and of different files, are not compared.
class Numbering {
 public:
  /// The names of the parameter that holds the number; the first one that a hit has counts.
  explicit Numbering(std::vector<std::string> names) : names_(std::move(names)) {}

  /// Sets the hit's number and marks. The hit has its sequence.
  void mark(Hit& hit);
  /// To be called when the hit leaves the store: what is known of it ends, too.
  void forget(const Hit& hit);

 private:
  struct Stream {
    std::unordered_map<std::uint64_t, std::uint64_t> latest;  // number to sequence
    std::uint64_t highest = 0;
  };

  static std::string streamOf(const Hit& hit);
  std::optional<std::uint64_t> numberOf(const Hit& hit) const;

  const std::vector<std::string> names_;
  std::unordered_map<std::string, Stream> streams_;
};
