#include <QVPlatform/Foundation/Value.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <ctime>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>

namespace QVPlatform {
namespace {

/// A container can hold itself, by way of others, and where containers share what they hold there
/// are as many ways through them as one likes: what lies deeper than Value::kMaximumDepth, or comes
/// after so many values, is left out of descriptions and counts as unequal.
constexpr std::size_t kMaximumDescribed = 1U << 16;
constexpr std::size_t kMaximumCompared = 1U << 20;
/// How many levels are indented: in front of what lies deep, blanks would take far more room than
/// what is described.
constexpr std::size_t kMaximumIndent = 64;

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

std::string_view withoutBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r\v\f"), text.size()));
  return text;
}

std::int64_t leadingInteger(std::string_view text) {
  text = withoutBlanks(text);
  if (text.starts_with('+')) text.remove_prefix(text.starts_with("+-") ? text.size() : 1);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc::result_out_of_range) return number;
  return text.starts_with('-') ? std::numeric_limits<std::int64_t>::min()
                               : std::numeric_limits<std::int64_t>::max();
}

double leadingNumber(std::string_view text) {
  text = withoutBlanks(text);
  if (text.starts_with('+')) text.remove_prefix(text.starts_with("+-") ? text.size() : 1);
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return std::isfinite(number) ? number
                               : 0;  // words such as "information" begin with a number, too
}

bool saysYes(std::string_view text) {
  text = withoutBlanks(text);
  if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  return !text.empty() &&
         std::string_view("123456789YyTt").find(text.front()) != std::string_view::npos;
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
  for (int digits = 16;; ++digits) {
    const auto end =
        std::to_chars(text, text + sizeof text, number, std::chars_format::general, digits).ptr;
    double read = 0;
    std::from_chars(text, end, read);
    if (digits == 17 || read == number) return {text, end};
  }
}

std::string decimal(bool flag) { return flag ? "1" : "0"; }

/// Where the system counts seconds in 32 bits, its calendar ends in 2038.
std::string dateText(Date date) {
  const auto seconds = clamped<std::time_t>(std::floor(date.secondsSince1970));
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

/// How far a walk through a value goes.
struct Walk {
  std::size_t left;  // values
  std::size_t depth = 0;

  bool isOver() {
    if (depth > Value::kMaximumDepth || left == 0) return true;
    --left;
    return false;
  }
};

/// Writes the description of one value.
class Description {
 public:
  std::string text;

  void append(const Value& value) {
    if (walk_.isOver()) {
      text.append("...");
    } else {
      std::visit([this](const auto& held) { appendHeld(held); }, value.storage());
    }
  }

 private:
  void appendHeld(std::monostate) { text.append("(null)"); }
  void appendHeld(const String& string) { text.append(string.view()); }
  void appendHeld(const Data& data) { text.append(dataText(data.view())); }
  void appendHeld(Date date) { text.append(dateText(date)); }
  void appendHeld(const Value::ObjectReference& object) {
    text.append(object->description().view());
  }
  template <class Number>
  requires std::is_arithmetic_v<Number>
  void appendHeld(Number number) { text.append(decimal(number)); }

  void appendHeld(const Array& array) {
    begin("(\n");
    for (const Value& element : array.values()) {
      indent();
      append(element);
      text.append(",\n");
    }
    end(")");
  }
  void appendHeld(const Dictionary& dictionary) {
    begin("{\n");
    for (const auto& [key, element] : *dictionary.snapshot()) {
      indent();
      text.append(key.view()).append(" = ");
      append(element);
      text.append(";\n");
    }
    end("}");
  }

  void indent() { text.append(std::min(walk_.depth, kMaximumIndent) * 4, ' '); }
  void begin(const char* bracket) {
    text.append(bracket);
    ++walk_.depth;
  }
  void end(const char* bracket) {
    --walk_.depth;
    indent();
    text.append(bracket);
  }

  Walk walk_{kMaximumDescribed};
};

bool isEqual(const Value& a, const Value& b, Walk& walk);

bool isEqual(const Dictionary::Entry& a, const Dictionary::Entry& b, Walk& walk) {
  return a.first == b.first && isEqual(a.second, b.second, walk);
}

/// Of elements or entries.
template <class List>
bool areEqual(const List& a, const List& b, Walk& walk) {
  ++walk.depth;
  const bool result =
      std::equal(a.begin(), a.end(), b.begin(), b.end(),
                 [&walk](const auto& x, const auto& y) { return isEqual(x, y, walk); });
  --walk.depth;
  return result;
}

/// A number with its sign apart, so that all kinds of integers compare exactly.
struct Integer {
  bool isNegative = false;
  std::uint64_t bits = 0;
  bool operator==(const Integer&) const = default;
};

std::optional<Integer> integer(const Value& number) {
  const auto split = []<class Number>(const Number& value) -> Integer {
    if constexpr (std::integral<Number>) {
      return {value < Number{}, static_cast<std::uint64_t>(value)};
    } else {
      return {};
    }
  };
  return std::visit(split, number.storage());
}

/// The number that the double stands for, if that is an integer of 64 bits.
std::optional<Integer> integer(double number) {
  constexpr double kEnd = 0x1p64;
  if (std::trunc(number) != number || !(std::abs(number) < kEnd)) return std::nullopt;
  if (number >= 0) return Integer{false, static_cast<std::uint64_t>(number)};
  if (number < -kEnd / 2) return std::nullopt;
  return Integer{true, static_cast<std::uint64_t>(static_cast<std::int64_t>(number))};
}

bool numbersAreEqual(const Value& a, const Value& b) {
  const auto* x = std::get_if<double>(&a.storage());
  const auto* y = std::get_if<double>(&b.storage());
  if (x && y) return *x == *y;
  return (x ? integer(*x) : integer(a)) == (y ? integer(*y) : integer(b));
}

bool isEqual(const Value& a, const Value& b, Walk& walk) {
  if (walk.isOver()) return false;
  if (a.isNumber() && b.isNumber()) return numbersAreEqual(a, b);
  if (a.storage().index() != b.storage().index()) return false;
  // One kind at a time: a visit of both at once would make a function for each pair of kinds.
  const auto equalsOther = [&b, &walk]<class Held>(const Held& x) {
    const Held& y = *std::get_if<Held>(&b.storage());
    if constexpr (std::same_as<Held, Array>) {
      return x.isSameObject(y) || areEqual(x.values(), y.values(), walk);
    } else if constexpr (std::same_as<Held, Dictionary>) {
      return x.isSameObject(y) || areEqual(*x.snapshot(), *y.snapshot(), walk);
    } else {
      return x == y;
    }
  };
  return std::visit(equalsOther, a.storage());
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

double Value::doubleValue() const {
  const auto convert = []<class Held>(const Held& held) -> double {
    if constexpr (std::same_as<Held, String>) {
      return leadingNumber(held.view());
    } else if constexpr (std::is_arithmetic_v<Held>) {
      return static_cast<double>(held);
    } else {
      return 0;
    }
  };
  return std::visit(convert, storage_);
}

bool Value::boolValue() const {
  const String* text = std::get_if<String>(&storage_);
  return text ? saysYes(text->view()) : doubleValue() != 0;
}

String Value::stringValue() const { return isNumber() ? description() : string(); }

String Value::description() const {
  if (const String* text = std::get_if<String>(&storage_)) return *text;
  Description description;
  description.append(*this);
  return String(description.text);
}

bool operator==(const Value& a, const Value& b) {
  Walk walk{kMaximumCompared};
  return isEqual(a, b, walk);
}

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
