#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace QVPlatform {

/// Hashes for tables in memory. They are quick to find, but nobody is kept from making texts with
/// the same one. They must not be stored: another build may find other ones.
class Hash {
 public:
  using Number = std::uint32_t;

  /// Mixing a word in takes several cycles, and the next word of the same chain has to wait for
  /// them. So the words are shared out between two chains, on which the processor works at once.
  static Number of(std::string_view bytes) {
    std::uint64_t even = bytes.size();
    std::uint64_t odd = 0;
    const char* place = bytes.data();
    std::size_t left = bytes.size();
    for (; left >= kBlock; left -= kBlock, place += kBlock) {
      even = mixed(even, wordAt(place));
      odd = mixed(odd, wordAt(place + kBlock / 2));
    }
    char rest[kBlock]{};
    if (left > 0) std::memcpy(rest, place, left);
    return joined(mixed(even, wordAt(rest)), mixed(odd, wordAt(rest + kBlock / 2)));
  }
  static Number of(std::uint64_t word) { return joined(word, 0); }

 private:
  static constexpr std::size_t kBlock = 16;

  static std::uint64_t wordAt(const char* place) {
    std::uint64_t word;
    std::memcpy(&word, place, sizeof word);
    return word;
  }
  static std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
    return (std::rotl(hash, 23) ^ word) * 0x9E3779B97F4A7C15U;
  }
  /// Only the upper bits of a product depend on all bits of its factors, hence the upper half.
  static Number joined(std::uint64_t even, std::uint64_t odd) {
    return static_cast<Number>(mixed(mixed(even, odd), 0) >> 32);
  }
};

}  // namespace QVPlatform
