#include <QVPlatform/Archives/Internal/XMLPropertyListText.h>

#include <openssl/evp.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>

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

Value data(std::string_view text) {
  // The decoder takes a hyphen for the end of what it decodes.
  if (text.find('-') != std::string_view::npos) return nullptr;
  const std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)> context(
      EVP_ENCODE_CTX_new(), EVP_ENCODE_CTX_free);
  if (!context) throw std::bad_alloc();
  std::string bytes(text.size(), '\0');
  auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
  int size = 0;
  int rest = 0;
  EVP_DecodeInit(context.get());
  const bool isDecoded = EVP_DecodeUpdate(context.get(), out, &size,
                                          reinterpret_cast<const unsigned char*>(text.data()),
                                          static_cast<int>(text.size())) >= 0 &&
                         EVP_DecodeFinal(context.get(), out + size, &rest) >= 0;
  if (!isDecoded) return nullptr;
  bytes.resize(static_cast<std::size_t>(size));
  return Data(std::move(bytes));
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
