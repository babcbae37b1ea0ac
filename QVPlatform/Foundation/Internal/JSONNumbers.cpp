#include <QVPlatform/Foundation/Internal/JSONNumbers.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <system_error>

namespace QVPlatform {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLargestDouble = "1.7976931348623157e308";

/// A number that follows the grammar of JSON, in its parts.
struct Number {
  bool isNegative = false;
  bool isInteger = true;      // neither fraction nor exponent
  std::string_view integer;   // digits, without leading zeros
  std::string_view fraction;  // digits after the point
  std::int64_t exponent = 0;
};

bool takeOneOf(std::string_view characters, std::string_view& text) {
  if (text.empty() || characters.find(text.front()) == characters.npos) return false;
  text.remove_prefix(1);
  return true;
}

/// False when there are none.
bool takeDigits(std::string_view& text, std::string_view& digits) {
  digits = text.substr(0, text.find_first_not_of(kDigits));
  text.remove_prefix(digits.size());
  return !digits.empty();
}

template <class T>
bool isInRangeOf(std::string_view number, T& value) {
  return std::from_chars(number.data(), number.data() + number.size(), value).ec == std::errc();
}

template <class T>
bool isInRangeOf(std::string_view number) {
  T value;
  return isInRangeOf(number, value);
}

std::optional<Number> parsedNumber(std::string_view token) {
  Number number;
  number.isNegative = takeOneOf("-", token);
  if (!takeDigits(token, number.integer)) return std::nullopt;
  if (number.integer.size() > 1 && number.integer.front() == '0') return std::nullopt;
  if (takeOneOf(".", token)) {
    number.isInteger = false;
    if (!takeDigits(token, number.fraction)) return std::nullopt;
  }
  if (takeOneOf("eE", token)) {
    number.isInteger = false;
    const bool isNegative = token.starts_with('-');
    takeOneOf("+-", token);
    std::string_view digits;
    if (!takeDigits(token, digits)) return std::nullopt;
    constexpr auto kBeyondAllTexts = std::numeric_limits<std::int64_t>::max() / 2;
    if (!isInRangeOf(digits, number.exponent) || number.exponent > kBeyondAllTexts) {
      number.exponent = kBeyondAllTexts;
    }
    if (isNegative) number.exponent = -number.exponent;
  }
  return token.empty() ? std::optional(number) : std::nullopt;
}

/// Of a number that no double can hold: whether it is too large, and not too close to zero.
bool isLarge(const Number& number) {
  if (number.integer != "0") {
    return static_cast<std::int64_t>(number.integer.size()) + number.exponent > 0;
  }
  const auto zeros = number.fraction.substr(0, number.fraction.find_first_not_of('0')).size();
  return number.exponent - static_cast<std::int64_t>(zeros) > 0;
}

void appendInRange(std::string& text, std::string_view token) {
  const auto number = parsedNumber(token);
  if (number && !isInRangeOf<double>(token) && isLarge(*number)) {
    text.append(number->isNegative ? "-" : "").append(kLargestDouble);
    return;
  }
  text.append(token);
  const bool needsExponent = number && number->isInteger && !isInRangeOf<std::int64_t>(token) &&
                             !isInRangeOf<std::uint64_t>(token);
  if (needsExponent) text.append("e0");
}

/// The length of the string that the text begins with, both quotation marks included; of all the
/// text when it does not end.
std::size_t lengthOfString(std::string_view text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      return i + 1;
    }
  }
  return text.size();
}

}  // namespace

std::string textWithNumbersInRange(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    std::size_t length = text.find_first_of("\"-0123456789");
    result.append(text.substr(0, length));
    text.remove_prefix(std::min(length, text.size()));
    if (text.starts_with('"')) {
      length = lengthOfString(text);
      result.append(text.substr(0, length));
    } else {
      length = std::min(text.find_first_not_of("+-.eE0123456789"), text.size());
      appendInRange(result, text.substr(0, length));
    }
    text.remove_prefix(length);
  }
  return result;
}

}  // namespace QVPlatform
