#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace QVPlatform::Hash {

/// For tables in memory: nobody is kept from making texts with the same one, and they must not be
/// stored, since another process may find other ones.
using Number = std::uint32_t;

inline Number of(std::string_view bytes) {
  return static_cast<Number>(std::hash<std::string_view>()(bytes));
}

/// As for bytes, since the standard library takes numbers for their own hashes, and all multiples
/// of sixteen would meet in one slot.
inline Number of(std::uint64_t word) {
  return of({reinterpret_cast<const char*>(&word), sizeof word});
}

}  // namespace QVPlatform::Hash
