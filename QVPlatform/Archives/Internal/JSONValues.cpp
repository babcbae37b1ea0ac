#include <QVPlatform/Archives/Internal/JSONValues.h>

#include <QVPlatform/Archives/Internal/JSONTokens.h>
#include <QVPlatform/Foundation/Null.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

using JSONTokens::afterSpace;

/// Nothing if the token is another kind of number, or one beyond the range.
template <class Number>
std::optional<Number> numberIn(std::string_view token) {
  Number number{};
  const char* const end = token.data() + token.size();
  const auto result = std::from_chars(token.data(), end, number);
  return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

/// Of a number that no double can hold: whether it is too large, and not too close to zero.
bool isLarge(std::string_view token) {
  const auto exponentMark = std::min(token.find_first_of("eE"), token.size());
  const std::string_view mantissa = token.substr(0, exponentMark);
  std::string_view exponent = token.substr(std::min(exponentMark + 1, token.size()));
  if (exponent.starts_with('+')) exponent.remove_prefix(1);
  const auto first = mantissa.find_first_of("123456789");
  if (first == mantissa.npos) return false;
  const auto point = std::min(mantissa.find('.'), mantissa.size());
  const auto scale = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  // One that does not fit is beyond what all the digits of a text could make good for.
  const auto power = exponent.empty() ? 0 : numberIn<std::int32_t>(exponent);
  return power ? scale + *power > 0 : !exponent.starts_with('-');
}

Value valueOfNumber(std::string_view token) {
  if (const auto number = numberIn<std::int64_t>(token)) return *number;
  if (const auto number = numberIn<std::uint64_t>(token)) return *number;
  if (const auto number = numberIn<double>(token)) return *number;
  if (!isLarge(token)) return 0.0;
  constexpr double kLargest = std::numeric_limits<double>::max();
  return token.starts_with('-') ? -kLargest : kLargest;
}

/// Reads one value after the other.
class Reader {
 public:
  Reader(const char* at, const char* end, const JSONStructure::Container* container)
      : at_(at), end_(end), container_(container) {}

  Value value() {
    switch (*at_) {
      case '{':
        return dictionary();
      case '[':
        return array();
      case '"':
        return string();
      default:
        return plainScalar();
    }
  }

 private:
  std::string_view scalar() {
    const char* const begin = std::exchange(at_, JSONTokens::afterScalar(at_, end_));
    return {begin, static_cast<std::size_t>(at_ - begin)};
  }

  String string() {
    const std::string_view token = scalar();
    return String(JSONTokens::unescaped(token.substr(1, token.size() - 2), buffer_));
  }

  Value plainScalar() {
    const std::string_view token = scalar();
    switch (token.front()) {
      case 't':
        return true;
      case 'f':
        return false;
      case 'n':
        return Null::null();
      default:
        return valueOfNumber(token);
    }
  }

  /// From the opening bracket, or from behind an element, to the next one; false, and behind the
  /// closing bracket, if there is none.
  bool enterNext(char closingBracket) {
    at_ = afterSpace(at_);
    if (*at_ != closingBracket) at_ = afterSpace(at_ + 1);
    if (*at_ != closingBracket) return true;
    ++at_;
    return false;
  }

  Array array() {
    std::vector<Value> values;
    values.reserve(container_++->count);
    while (enterNext(']')) values.push_back(value());
    return Array(std::move(values));
  }

  Dictionary dictionary() {
    std::vector<Dictionary::Entry> entries;
    entries.reserve(container_++->count);
    while (enterNext('}')) {
      String key = string();
      at_ = afterSpace(afterSpace(at_) + 1);  // the colon
      entries.emplace_back(std::move(key), value());
    }
    return Dictionary(std::move(entries));
  }

  const char* at_;
  const char* const end_;
  const JSONStructure::Container* container_;  // the next one
  std::string buffer_;
};

}  // namespace

Value valueOfJSON(const char* at, const char* end, const JSONStructure::Container* container) {
  return Reader(at, end, container).value();
}

}  // namespace QVPlatform
