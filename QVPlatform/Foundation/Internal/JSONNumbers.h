#pragma once

#include <string>
#include <string_view>

namespace QVPlatform {

/// The JSON text with every integer beyond 64 bits written as a number with an exponent, and every
/// number beyond the range of double as the largest double of its sign; so a parser that insists on
/// machine numbers can read them. Everything else is copied as it is, malformed numbers included.
std::string textWithNumbersInRange(std::string_view text);

}  // namespace QVPlatform
