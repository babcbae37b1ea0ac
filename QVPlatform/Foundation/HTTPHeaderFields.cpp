#include <QVPlatform/Foundation/HTTPHeaderFields.h>
#include <QVPlatform/Foundation/Value.h>

#include <strings.h>

#include <algorithm>

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

bool isTokenCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

}  // namespace

void HTTPHeaderFields::add(const String& field, const String& value) {
  const auto place = find(fields_, field);
  if (place == fields_.end()) {
    fields_.emplace_back(field, trimmed(value));
  } else {
    place->second = place->second + ", " + trimmed(value);
  }
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
