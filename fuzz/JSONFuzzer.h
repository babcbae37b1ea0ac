#pragma once

#include <QVPlatform/Archives/JSONDocument.h>
#include <QVPlatform/Archives/JSONSerialization.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace QVFuzz {

/// The text up to the next zero byte; takes it away from the input.
inline std::string_view takeField(std::string_view& input) {
  const auto end = input.find('\0');
  const auto field = input.substr(0, end);
  input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  return field;
}

/// Reads JSON in both ways, which must agree. Input: a path with "/" between its keys, a zero byte,
/// the text.
inline void readJSON(std::string_view input) {
  using QVPlatform::String;
  std::string_view path = takeField(input);
  String error;
  const String text(input);
  auto value = QVPlatform::JSONSerialization::JSONObjectWithText(text, &error);
  QVPlatform::JSONDocument document(text);
  if (error != document.error() || value.isNil() != !error.isNull()) std::abort();
  while (!path.empty()) {
    const auto key = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(key.size() + 1, path.size()));
    const auto member = value.dictionary().get(String(key));
    if (document.enterMember(key) == member.isNil()) std::abort();
    if (!member.isNil()) value = member;
  }
  if (document.value().description() != value.description()) std::abort();
}

}  // namespace QVFuzz
