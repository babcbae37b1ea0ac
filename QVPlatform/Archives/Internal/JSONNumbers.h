#pragma once

#include <string>
#include <string_view>

namespace QVPlatform {

/// The JSON text with every integer beyond 64 bits written with an exponent, and every number
/// beyond the doubles as the largest double of its sign, so that a parser which insists on machine
/// numbers reads them. Everything else is copied as it is, malformed numbers included.
std::string textWithNumbersInRange(std::string_view text);

}  // namespace QVPlatform
