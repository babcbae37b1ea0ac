#include <QVPlatform/Networking/HTTPHeaderFields.h>

#include <QVPlatform/Foundation/Value.h>

#include <strings.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <string>

namespace QVPlatform {
namespace {

template <class Fields>
auto find(Fields& fields, const String& name) {
  return std::find_if(fields.begin(), fields.end(), [&](const auto& field) {
    const std::string_view a = field.first.view();
    const std::string_view b = name.view();
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
  });
}

String trimmed(const String& text) {
  constexpr const char* kBlanks = " \t";
  const std::string_view view = text.view();
  const std::size_t begin = view.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return "";
  const std::size_t size = view.find_last_not_of(kBlanks) + 1 - begin;
  return size == view.size() ? text : String(view.substr(begin, size));
}

/// Header bytes that are not UTF-8 are Latin-1, by long custom.
String textOf(std::string_view bytes) {
  String text(bytes);
  if (!text.isNull()) return text;
  std::string utf8(2 * bytes.size(), '\0');
  std::size_t size = 0;
  for (const char byte : bytes)
    U8_APPEND_UNSAFE(utf8.data(), size, static_cast<std::uint8_t>(byte));
  return String(std::string_view(utf8.data(), size));
}

/// Takes the first line, without its end, off the text.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

bool isFolded(std::string_view rest) { return rest.starts_with(' ') || rest.starts_with('\t'); }

bool isTokenCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

}  // namespace

HTTPHeaderFields HTTPHeaderFields::parse(std::string_view header) {
  HTTPHeaderFields fields;
  while (!header.empty()) {
    std::string line(takeLine(header));
    while (isFolded(header)) line.append(takeLine(header));
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const String name(std::string_view(line).substr(0, colon));
    if (isHTTPToken(name)) fields.add(name, textOf(std::string_view(line).substr(colon + 1)));
  }
  return fields;
}

void HTTPHeaderFields::add(const String& field, const String& value) {
  const auto place = find(fields_, field);
  if (place == fields_.end()) {
    fields_.emplace_back(field, trimmed(value));
  } else {
    place->second = place->second + ", " + trimmed(value);
  }
}

void HTTPHeaderFields::remove(const String& field) {
  const auto place = find(fields_, field);
  if (place != fields_.end()) fields_.erase(place);
}

String HTTPHeaderFields::value(const String& field) const {
  const auto place = find(fields_, field);
  return place == fields_.end() ? String() : place->second;
}

Dictionary HTTPHeaderFields::dictionary() const {
  return Dictionary(std::vector<Dictionary::Entry>(fields_.begin(), fields_.end()));
}

bool isHTTPToken(const String& text) {
  const std::string_view view = text.view();
  return !view.empty() && std::all_of(view.begin(), view.end(), isTokenCharacter);
}

bool isHTTPFieldValue(const String& text) {
  constexpr std::string_view kForbidden("\r\n\0", 3);
  return !text.isNull() && text.view().find_first_of(kForbidden) == std::string_view::npos;
}

}  // namespace QVPlatform
