#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace QVPlatform::Hash {

/// A hash for tables in memory. It protects from nobody who makes texts with equal hashes on
/// purpose, and it must not be stored, since another process may compute another one.
using Number = std::uint32_t;

inline Number of(std::string_view bytes) {
  return static_cast<Number>(std::hash<std::string_view>()(bytes));
}

/// The hash of the number's bytes. The standard library uses a number as its own hash, with which
/// all multiples of sixteen would meet in one slot of a table.
inline Number of(std::uint64_t word) {
  return of({reinterpret_cast<const char*>(&word), sizeof word});
}

}  // namespace QVPlatform::Hash
