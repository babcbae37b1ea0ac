#pragma once

#include <QVPlatform/Archives/Internal/BinaryPropertyListFormat.h>

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

/// How the parts of a binary property list are laid down: each function puts something there and
/// answers where it ends.
namespace QVPlatform::BinaryPropertyListBytes {

/// Bytes that the format takes for an unsigned number: 1, 2, 4 or 8.
inline std::size_t widthOf(std::uint64_t number) {
  return std::bit_ceil((static_cast<std::size_t>(std::bit_width(number | 1)) + 7) / 8);
}

template <std::unsigned_integral Number>
char* put(char* to, Number number) {
  if constexpr (std::endian::native == std::endian::little) {
    if constexpr (sizeof number == 2) number = __builtin_bswap16(number);
    if constexpr (sizeof number == 4) number = __builtin_bswap32(number);
    if constexpr (sizeof number == 8) number = __builtin_bswap64(number);
  }
  std::memcpy(to, &number, sizeof number);
  return to + sizeof number;
}

/// The number in as many bytes as `width` says, which widthOf() has found to be enough.
inline char* put(char* to, std::uint64_t number, std::size_t width) {
  switch (width) {
    case 1:
      return put(to, static_cast<std::uint8_t>(number));
    case 2:
      return put(to, static_cast<std::uint16_t>(number));
    case 4:
      return put(to, static_cast<std::uint32_t>(number));
    default:
      return put(to, number);
  }
}

inline char* put(char* to, std::span<const std::uint32_t> numbers, std::size_t width) {
  switch (width) {
    case 1:
      for (const auto number : numbers) to = put(to, static_cast<std::uint8_t>(number));
      return to;
    case 2:
      for (const auto number : numbers) to = put(to, static_cast<std::uint16_t>(number));
      return to;
    default:
      for (const auto number : numbers) to = put(to, number);
      return to;
  }
}

/// The marker that an object begins with, and the length if the marker has no room for it.
inline char* putHead(char* to, std::uint8_t type, std::size_t count) {
  const bool isShort = count < BinaryPropertyListFormat::kLengthMask;
  to = put(to, static_cast<std::uint8_t>(
                   type | (isShort ? count : BinaryPropertyListFormat::kLengthMask)));
  if (isShort) return to;
  const std::size_t width = widthOf(count);
  to = put(to,
           static_cast<std::uint8_t>(BinaryPropertyListFormat::kInteger | std::countr_zero(width)));
  return put(to, count, width);
}

inline std::size_t headSize(std::size_t count) {
  return count < BinaryPropertyListFormat::kLengthMask ? 1 : 2 + widthOf(count);
}

/// The end of the file.
struct Trailer {
  std::size_t offsetWidth;
  std::size_t referenceWidth;
  std::uint64_t objectCount;
  std::uint64_t root;
  std::uint64_t table;
};

inline char* putTrailer(char* to, const Trailer& trailer) {
  constexpr std::size_t kUnused = 6;
  std::memset(to, 0, kUnused);  // nothing else of the process's memory gets into the file
  to = put(to + kUnused, static_cast<std::uint8_t>(trailer.offsetWidth));
  to = put(to, static_cast<std::uint8_t>(trailer.referenceWidth));
  to = put(to, trailer.objectCount);
  to = put(to, trailer.root);
  return put(to, trailer.table);
}

}  // namespace QVPlatform::BinaryPropertyListBytes
