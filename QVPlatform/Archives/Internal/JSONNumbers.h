#pragma once

#include <bit>
#include <string>
#include <string_view>

namespace QVPlatform {

/// The parser reads eight decimals at once, as a word, and takes its bytes for those of a
/// little-endian machine.
constexpr bool kAreDecimalsMisread = std::endian::native == std::endian::big;

/// The JSON text with every integer beyond 64 bits written with an exponent, and every number
/// beyond the doubles as the largest double of its sign, so that a parser which insists on machine
/// numbers reads them; where decimals are misread, every number that has many without its point.
/// Everything else is copied as it is, malformed numbers included.
std::string textWithNumbersInRange(std::string_view text);

}  // namespace QVPlatform
