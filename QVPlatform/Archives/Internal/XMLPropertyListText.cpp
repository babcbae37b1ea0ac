#include <QVPlatform/Archives/Internal/XMLPropertyListText.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

namespace QVPlatform {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

template <class Number, class... Format>
bool parse(std::string_view text, Number& number, Format... format) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number, format...);
  return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

Value integer(std::string_view text) {
  text = trimmed(text);
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t bits = 0;
  if (!parse(text, bits, isHexadecimal ? 16 : 10)) return nullptr;
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  if (isNegative) return bits <= kLargest + 1 ? Value(static_cast<std::int64_t>(-bits)) : Value();
  return bits <= kLargest ? Value(static_cast<std::int64_t>(bits)) : Value(bits);
}

Value real(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  double number = 0;
  return parse(text, number) ? Value(number) : Value();
}

Value date(std::string_view text) {
  namespace chrono = std::chrono;
  const std::string copy(trimmed(text));
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, end = 0;
  std::sscanf(copy.c_str(), "%5d-%2d-%2dT%2d:%2d:%2dZ%n", &year, &month, &day, &hour, &minute,
              &second, &end);
  if (copy.empty() || static_cast<std::size_t>(end) != copy.size()) return nullptr;
  if (year < 1 || month < 1 || day < 1) return nullptr;
  const chrono::year_month_day calendar(chrono::year(year),
                                        chrono::month(static_cast<unsigned>(month)),
                                        chrono::day(static_cast<unsigned>(day)));
  if (!calendar.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59) return nullptr;
  if (second < 0 || second > 60) return nullptr;
  const auto point = chrono::sys_days(calendar) + chrono::hours(hour) + chrono::minutes(minute) +
                     chrono::seconds(second);
  return Date{static_cast<TimeInterval>(point.time_since_epoch().count())};
}

int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

Value data(std::string_view text) {
  std::string bytes;
  std::uint32_t bits = 0;
  unsigned digits = 0;
  unsigned padding = 0;
  for (const char c : text) {
    if (kBlanks.find(c) != std::string_view::npos) continue;
    const int digit = base64Digit(c);
    if (c == '=') {
      ++padding;
    } else if (digit < 0 || padding > 0) {
      return nullptr;
    } else {
      bits = bits << 6 | static_cast<std::uint32_t>(digit);
      if (++digits % 4 != 1) bytes.push_back(static_cast<char>(bits >> (4 - digits % 4) % 4 * 2));
    }
  }
  const bool isWhole = (digits + padding) % 4 == 0 && padding <= 2;
  return isWhole ? Value(Data(std::move(bytes))) : Value();
}

}  // namespace

Value valueOfXMLElement(std::string_view element, std::string_view text) {
  if (element == "string") return String(text);
  if (element == "integer") return integer(text);
  if (element == "real") return real(text);
  if (element == "date") return date(text);
  if (element == "data") return data(text);
  if (element == "true" && text.empty()) return true;
  if (element == "false" && text.empty()) return false;
  return nullptr;
}

}  // namespace QVPlatform
