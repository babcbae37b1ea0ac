#include <QVPlatform/Archives/Internal/JSONNumbers.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

namespace QVPlatform {
namespace {

template <class Number>
bool isInRangeOf(std::string_view token) {
  Number number;
  return std::from_chars(token.data(), token.data() + token.size(), number).ec == std::errc();
}

/// False when there are none.
bool takeDigits(std::string_view& text) {
  const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(count);
  return count > 0;
}

bool takeOneOf(std::string_view characters, std::string_view& text) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

bool isNumber(std::string_view token) {
  takeOneOf("-", token);
  if (!takeOneOf("0", token) && !takeDigits(token)) return false;
  if (takeOneOf(".", token) && !takeDigits(token)) return false;
  if (!takeOneOf("eE", token)) return token.empty();
  takeOneOf("+-", token);
  return takeDigits(token) && token.empty();
}

/// Of a number that no double can hold: whether it is too large, and not too close to zero.
bool isLarge(std::string_view token) {
  const auto exponentMark = std::min(token.find_first_of("eE"), token.size());
  const std::string_view mantissa = token.substr(0, exponentMark);
  std::string_view exponent = token.substr(std::min(exponentMark + 1, token.size()));
  if (exponent.starts_with('+')) exponent.remove_prefix(1);
  const auto first = mantissa.find_first_of("123456789");
  if (first == std::string_view::npos) return false;
  const auto point = std::min(mantissa.find('.'), mantissa.size());
  const auto scale = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  // A power that does not fit is beyond what all the digits of a text could make good for.
  std::int32_t power = 0;
  const auto result = std::from_chars(exponent.data(), exponent.data() + exponent.size(), power);
  if (result.ec == std::errc::result_out_of_range) return !exponent.starts_with('-');
  return scale + power > 0;
}

bool hasManyDecimals(std::string_view token) {
  const auto point = token.find('.');
  return point != std::string_view::npos &&
         std::min(token.find_first_of("eE"), token.size()) - point > 8;
}

/// The same number with its point behind the last digit: "-120e1" for "-0.0120e5".
std::string withoutPoint(std::string_view token) {
  const auto point = token.find('.');
  const auto exponentMark = std::min(token.find_first_of("eE"), token.size());
  const std::string_view decimals = token.substr(point + 1, exponentMark - point - 1);
  std::string digits = std::string(token.substr(0, point)).append(decimals);
  const std::size_t sign = digits.starts_with('-') ? 1 : 0;
  digits.erase(sign, std::min(digits.find_first_of("123456789"), digits.size() - 1) - sign);
  std::string_view exponent = token.substr(std::min(exponentMark + 1, token.size()));
  if (exponent.starts_with('+')) exponent.remove_prefix(1);
  std::int32_t power = 0;
  const auto result = std::from_chars(exponent.data(), exponent.data() + exponent.size(), power);
  if (result.ec == std::errc::result_out_of_range) return "0.0";  // the large ones are dealt with
  return digits + 'e' + std::to_string(power - static_cast<std::int64_t>(decimals.size()));
}

void appendInRange(std::string& text, std::string_view token) {
  if (!isNumber(token)) {
    text.append(token);
  } else if (!isInRangeOf<double>(token) && isLarge(token)) {
    text.append(token.starts_with('-') ? "-" : "").append("17976931348623157e292");
  } else if (kAreDecimalsMisread && hasManyDecimals(token)) {
    text.append(withoutPoint(token));
  } else {
    text.append(token);
    const bool isInteger = token.find_first_of(".eE") == std::string_view::npos;
    if (isInteger && !isInRangeOf<std::int64_t>(token) && !isInRangeOf<std::uint64_t>(token)) {
      text.append("e0");
    }
  }
}

/// The size of the string that the text begins with, quotation marks included; of all the text when
/// the string does not end.
std::size_t sizeOfString(std::string_view text) {
  std::size_t mark = text.find_first_of("\"\\", 1);
  while (mark < text.size() && text[mark] == '\\') mark = text.find_first_of("\"\\", mark + 2);
  return mark < text.size() ? mark + 1 : text.size();
}

}  // namespace

std::string textWithNumbersInRange(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    std::size_t size = 0;
    if (text.front() == '"') {
      size = sizeOfString(text);
      result.append(text, 0, size);
    } else if (size = std::min(text.find_first_not_of("+-.eE0123456789"), text.size()); size > 0) {
      appendInRange(result, text.substr(0, size));
    } else {
      size = std::min(text.find_first_of("\"-0123456789"), text.size());
      result.append(text, 0, size);
    }
    text.remove_prefix(size);
  }
  return result;
}

}  // namespace QVPlatform
