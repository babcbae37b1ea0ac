#include "inspector/Text.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::tm fieldsOf(Time time) {
  const auto seconds = static_cast<std::time_t>(time / 1000);
  std::tm fields{};
  gmtime_r(&seconds, &fields);
  return fields;
}

/// How many bytes of UTF-8 begin here; 0 if what begins here is none.
std::size_t characterSize(std::string_view bytes) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned first = at(0);
  if (first < 0x80) return 1;
  const std::size_t size = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (size == 0 || first > 0xF4 || bytes.size() < size) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((at(i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = at(1);
  const bool isLonger = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool isNoCharacter = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
  return isLonger || isNoCharacter ? 0 : size;
}

int hexDigit(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  letter = static_cast<char>(letter | 0x20);
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

std::string decoded(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape = text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
                          hexDigit(text[i + 2]) >= 0;
    if (isEscape) {
      result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
      i += 2;
    } else {
      result += text[i] == '+' ? ' ' : text[i];
    }
  }
  return result;
}

}  // namespace

Time now() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string isoText(Time time) {
  const std::tm fields = fieldsOf(time);
  char text[40];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &fields);
  std::snprintf(text + size, sizeof text - size, ".%03dZ", static_cast<int>(time % 1000));
  return text;
}

std::optional<Time> timeOfISOText(const std::string& text) {
  std::tm fields{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &fields);
  if (rest == nullptr) return std::nullopt;
  int milliseconds = 0;
  if (*rest == '.') {
    int place = 100;
    for (++rest; *rest >= '0' && *rest <= '9'; ++rest, place /= 10) {
      milliseconds += (*rest - '0') * place;
    }
  }
  std::tm zone{};  // of which strptime() sets the offset alone
  rest = strptime(rest, "%z", &zone);
  if (rest == nullptr || *rest != '\0') return std::nullopt;
  const Time seconds = static_cast<Time>(timegm(&fields)) - zone.tm_gmtoff;
  return seconds < 0 ? std::nullopt : std::optional(seconds * 1000 + milliseconds);
}

std::string httpDate(Time time) {
  const std::tm fields = fieldsOf(time);
  char text[40];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &fields);
  return text;
}

std::optional<Time> timeOfHTTPDate(const std::string& text) {
  std::tm fields{};
  const char* const rest = strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields);
  if (rest == nullptr || *rest != '\0') return std::nullopt;
  return static_cast<Time>(timegm(&fields)) * 1000;
}

std::optional<std::uint64_t> numberIn(std::string_view text, std::uint64_t limit) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number > limit) return std::nullopt;
  return number;
}

bool isUTF8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t size = characterSize(bytes);
    if (size == 0) return false;
    bytes.remove_prefix(size);
  }
  return true;
}

std::string textOf(std::string_view bytes) {
  if (isUTF8(bytes)) return std::string(bytes);
  std::string text;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    if (code >= 0x80) text += static_cast<char>(0xC0 | (code >> 6));
    text += static_cast<char>(code < 0x80 ? code : 0x80 | (code & 0x3F));
  }
  return text;
}

std::string base64(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8 | (j < count ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    }
    for (unsigned j = 0; j < 4; ++j) {
      text += j <= count ? kBase64[(group >> (18 - 6 * j)) & 63] : '=';
    }
  }
  return text;
}

std::optional<std::string> bytesOfBase64(std::string_view text) {
  std::string bytes;
  unsigned group = 0;
  int bits = 0;
  while (text.ends_with('=')) text.remove_suffix(1);
  const std::string_view letters(kBase64, sizeof kBase64 - 1);
  for (const char letter : text) {
    const std::size_t digit = letters.find(letter);
    if (digit == std::string::npos) return std::nullopt;
    group = (group << 6 | static_cast<unsigned>(digit)) & 0xFFFFFF;
    bits += 6;
    if (bits >= 8) bytes += static_cast<char>(group >> (bits -= 8));
  }
  return bytes;
}

const std::string* findHeader(const Headers& headers, std::string_view name) {
  for (const auto& [itsName, value] : headers) {
    if (itsName.size() == name.size() && strncasecmp(itsName.data(), name.data(), name.size()) == 0)
      return &value;
  }
  return nullptr;
}

std::vector<Parameter> parametersIn(std::string_view query) {
  std::vector<Parameter> parameters;
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(query.size(), part.size() + 1));
    if (part.empty()) continue;
    const std::size_t sign = std::min(part.find('='), part.size());
    parameters.push_back(
        {decoded(part.substr(0, sign)), decoded(part.substr(std::min(part.size(), sign + 1)))});
  }
  return parameters;
}

std::string_view queryOf(std::string_view url) {
  url = url.substr(0, url.find('#'));
  const std::size_t mark = url.find('?');
  return mark == std::string::npos ? std::string_view() : url.substr(mark + 1);
}

std::string_view pathOf(std::string_view url) {
  url = url.substr(0, url.find_first_of("?#"));
  const std::size_t scheme = url.find("://");
  const std::size_t slash = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  return slash == std::string::npos ? std::string_view("/") : url.substr(slash);
}
