#pragma once

#include <string>

namespace QVPlatform {

// Of UTF-16: characters beyond U+FFFF are pairs of a high and a low surrogate.
constexpr bool isHighSurrogate(char32_t unit) { return (unit & ~char32_t{0x3FF}) == 0xD800; }
constexpr bool isLowSurrogate(char32_t unit) { return (unit & ~char32_t{0x3FF}) == 0xDC00; }
constexpr char32_t characterOfPair(char32_t high, char32_t low) {
  return 0x10000 + ((high & 0x3FF) << 10 | (low & 0x3FF));
}

/// Appends the character, which is no surrogate, as UTF-8.
void appendUTF8(std::string& text, char32_t character);

}  // namespace QVPlatform
