#include <QVPlatform/Foundation/Value.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <concepts>
#include <ctime>
#include <initializer_list>
#include <limits>
#include <string>

namespace QVPlatform {
namespace {

/// A container can hold itself, by way of others; what lies deeper than this is left out of
/// descriptions and counts as unequal.
constexpr int kMaximumDepth = 64;

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

std::int64_t leadingInteger(std::string_view text) {
  while (!text.empty() && std::string_view(" \t\n\r\v\f").find(text.front()) != text.npos) {
    text.remove_prefix(1);
  }
  if (text.starts_with('+')) text.remove_prefix(text.starts_with("+-") ? text.size() : 1);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc::result_out_of_range) return number;
  return text.starts_with('-') ? std::numeric_limits<std::int64_t>::min()
                               : std::numeric_limits<std::int64_t>::max();
}

template <class Target>
Target clamped(double number) {
  if (std::isnan(number)) return 0;
  if (number <= static_cast<double>(std::numeric_limits<Target>::min())) {
    return std::numeric_limits<Target>::min();
  }
  if (number >= static_cast<double>(std::numeric_limits<Target>::max())) {
    return std::numeric_limits<Target>::max();
  }
  return static_cast<Target>(number);
}

template <std::integral Number>
std::string decimal(Number number) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, number).ptr;
  return {text, end};
}

/// As "%g" with 16 digits, which are the usual ones, or with 17 where those stand for another
/// number. An exponent is written from 1e+16 on, and below 0.0001.
std::string decimal(double number) {
  char text[32];
  for (const int digits : {16, 17}) {
    const auto end =
        std::to_chars(text, text + sizeof text, number, std::chars_format::general, digits).ptr;
    double read = 0;
    std::from_chars(text, end, read);
    if (digits == 17 || read == number) return {text, end};
  }
  return {};
}

std::string decimal(bool flag) { return flag ? "1" : "0"; }

std::string dateText(Date date) {
  const auto seconds = clamped<std::int64_t>(std::floor(date.secondsSince1970));
  std::tm fields{};
  char text[64] = "";
  if (gmtime_r(&seconds, &fields)) {
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &fields);
  }
  return text;
}

std::string dataText(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (const char byte : bytes) {
    text.push_back(kDigits[static_cast<unsigned char>(byte) >> 4]);
    text.push_back(kDigits[static_cast<unsigned char>(byte) & 15]);
  }
  return text + ">";
}

std::string describe(const Value& value, int depth);

std::string describe(const Array& array, int depth) {
  const std::string indent(static_cast<std::size_t>(depth) * 4, ' ');
  std::string text = "(\n";
  for (const Value& element : array.values()) {
    text.append(indent).append("    ").append(describe(element, depth + 1)).append(",\n");
  }
  return text.append(indent).append(")");
}

std::string describe(const Dictionary& dictionary, int depth) {
  const std::string indent(static_cast<std::size_t>(depth) * 4, ' ');
  std::string text = "{\n";
  for (const auto& [key, element] : dictionary.entries()) {
    text.append(indent).append("    ").append(key.view()).append(" = ");
    text.append(describe(element, depth + 1)).append(";\n");
  }
  return text.append(indent).append("}");
}

std::string describe(const Value& value, int depth) {
  if (depth > kMaximumDepth) return "...";
  return std::visit(
      Overloaded{
          [](std::monostate) -> std::string { return "(null)"; },
          [](const String& text) { return std::string(text.view()); },
          [](const Data& data) { return dataText(data.view()); },
          [](Date date) { return dateText(date); },
          [depth](const Array& array) { return describe(array, depth); },
          [depth](const Dictionary& dictionary) { return describe(dictionary, depth); },
          [](const Value::ObjectReference& object) {
            return std::string(object->description().view());
          },
          [](auto number) { return decimal(number); },
      },
      value.storage());
}

bool isEqual(const Value& a, const Value& b, int depth);

bool isEqual(const Array& a, const Array& b, int depth) {
  if (a.isSameObject(b)) return true;
  const auto left = a.values();
  const auto right = b.values();
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [depth](const Value& x, const Value& y) { return isEqual(x, y, depth + 1); });
}

bool isEqual(const Dictionary& a, const Dictionary& b, int depth) {
  if (a.isSameObject(b)) return true;
  const auto left = a.entries();
  const auto right = b.entries();
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [depth](const auto& x, const auto& y) {
                      return x.first == y.first && isEqual(x.second, y.second, depth + 1);
                    });
}

/// A number with its sign apart, so that all kinds of integers compare exactly.
struct Integer {
  bool isNegative = false;
  std::uint64_t bits = 0;
  bool operator==(const Integer&) const = default;
};

Integer integer(const Value& number) {
  const auto split = []<class Number>(const Number& value) -> Integer {
    if constexpr (std::integral<Number>) {
      return {value < Number{}, static_cast<std::uint64_t>(value)};
    } else {
      return {};
    }
  };
  return std::visit(split, number.storage());
}

double real(const Value& number) {
  const auto widen = []<class Number>(const Number& value) -> double {
    if constexpr (std::is_arithmetic_v<Number>) {
      return static_cast<double>(value);
    } else {
      return 0;
    }
  };
  return std::visit(widen, number.storage());
}

bool numbersAreEqual(const Value& a, const Value& b) {
  const bool isReal =
      std::holds_alternative<double>(a.storage()) || std::holds_alternative<double>(b.storage());
  return isReal ? real(a) == real(b) : integer(a) == integer(b);
}

bool isEqual(const Value& a, const Value& b, int depth) {
  if (depth > kMaximumDepth) return false;
  if (a.isNumber() && b.isNumber()) return numbersAreEqual(a, b);
  return std::visit(
      Overloaded{
          [depth](const Array& x, const Array& y) { return isEqual(x, y, depth); },
          [depth](const Dictionary& x, const Dictionary& y) { return isEqual(x, y, depth); },
          []<class T>(const T& x, const T& y) { return x == y; },
          [](const auto&, const auto&) { return false; },
      },
      a.storage(), b.storage());
}

}  // namespace

std::int64_t Value::longLongValue() const {
  const auto convert = []<class Held>(const Held& held) -> std::int64_t {
    constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
    if constexpr (std::same_as<Held, String>) {
      return leadingInteger(held.view());
    } else if constexpr (std::same_as<Held, double>) {
      return clamped<std::int64_t>(held);
    } else if constexpr (std::same_as<Held, std::uint64_t>) {
      return std::cmp_less(held, kLargest) ? static_cast<std::int64_t>(held) : kLargest;
    } else if constexpr (std::integral<Held>) {
      return held;
    } else {
      return 0;
    }
  };
  return std::visit(convert, storage_);
}

std::int32_t Value::intValue() const {
  using Limits = std::numeric_limits<std::int32_t>;
  const auto convert = []<class Held>(const Held& held) -> std::int32_t {
    if constexpr (std::same_as<Held, String>) {
      const std::int64_t number = leadingInteger(held.view());
      return static_cast<std::int32_t>(
          std::clamp<std::int64_t>(number, Limits::min(), Limits::max()));
    } else if constexpr (std::same_as<Held, double>) {
      return clamped<std::int32_t>(held);
    } else if constexpr (std::integral<Held>) {
      return static_cast<std::int32_t>(held);
    } else {
      return 0;
    }
  };
  return std::visit(convert, storage_);
}

String Value::stringValue() const { return isNumber() ? description() : string(); }

String Value::description() const {
  if (const String* text = std::get_if<String>(&storage_)) return *text;
  return String(describe(*this, 0));
}

bool operator==(const Value& a, const Value& b) { return isEqual(a, b, 0); }

String stringWithFormat(std::string_view format, std::initializer_list<Value> arguments) {
  std::string text;
  auto argument = arguments.begin();
  for (std::size_t hole; (hole = format.find("%@")) != std::string_view::npos;) {
    const bool isGiven = argument != arguments.end();
    text.append(format, 0, hole).append((isGiven ? *argument++ : Value()).description().view());
    format.remove_prefix(hole + 2);
  }
  return String(text.append(format));
}

}  // namespace QVPlatform
