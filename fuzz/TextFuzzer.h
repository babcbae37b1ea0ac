#pragma once

#include "JSONFuzzer.h"

#include <QVCore/QVUtils.h>
#include <QVPlatform/Networking/URL.h>
#include <QVPlatform/Text/RegularExpression.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

namespace QVFuzz {

inline bool matches(const QVPlatform::String& text, const char* pattern) {
  const auto expression = QVPlatform::RegularExpression::regularExpressionWithPattern(pattern);
  return expression->firstMatchInString(text).has_value();
}

/// Whether the host is an address in square brackets, or the text would have it so.
inline bool hasAddress(const QVPlatform::String& text) {
  return matches(text, "^(?:[^:/?#]*:)?//[^/?#]*\\[");
}

/// What a URL is, without such an address: a second opinion, by another way.
inline bool isURL(const QVPlatform::String& text) {
#define QV_USUAL "A-Za-z0-9+\\-._~!$&'()*,;="
#define QV_ESCAPE "%[0-9A-Fa-f]{2}"
#define QV_REST "(?:[" QV_USUAL ":@/?\\[\\]]|" QV_ESCAPE ")*+"
#define QV_USER "(?:[" QV_USUAL ":]|" QV_ESCAPE ")*+"
#define QV_HOST "(?:[" QV_USUAL "]|" QV_ESCAPE ")*+"
  const bool isGrammatical = matches(text,
                                     "^(?:[A-Za-z][A-Za-z0-9+.\\-]*+:|(?![^:/?#]*+:))"
                                     "(?://(?:" QV_USER "@)?" QV_HOST "(?::" QV_USER
                                     ")?(?=[/?#]|$)|(?!//))" QV_REST "(?:#" QV_REST ")?$");
#undef QV_USUAL
#undef QV_ESCAPE
#undef QV_REST
#undef QV_USER
#undef QV_HOST
  return isGrammatical;
}

/// Escapes a text and takes the escapes back; what is escaped may stand in a URL.
inline void escape(const QVPlatform::String& text) {
  using QVPlatform::String;
  const std::string_view whole = text.UTF8String();  // an escaped text ends at a zero byte
  const String escaped = QVURLEncodedString(text);
  if (escaped.stringByReplacingPercentEscapes().view() != whole) std::abort();
  if (!QVPlatform::URL::URLWithString(String("http://h/?") + escaped)) std::abort();
}

/// Reads an integer as both the kit and the standard library do.
inline void readNumber(const QVPlatform::String& text) {
  constexpr std::size_t kDigits = 18;  // of an integer that surely fits
  const std::string_view digits = text.view();
  const auto number = QVUtils::nsNumberFromString(text);
  if (digits.size() > kDigits || digits.find_first_not_of("0123456789") != std::string_view::npos)
    return;
  if (digits.empty() ? !number.isNil() : number.longLongValue() != std::atoll(text.UTF8String())) {
    std::abort();
  }
}

/// Reads one text in all the ways in which texts from outside are read. Input: a pattern, a zero
/// byte, the text.
inline void readText(std::string_view input) {
  using QVPlatform::String;
  constexpr std::size_t kLongest = 500;  // so that the grammar needs no more stack than it may
  const String pattern(takeField(input));
  const String text(input.substr(0, kLongest));
  if (text.isNull()) return;
  if (!hasAddress(text) &&
      QVPlatform::URL::URLWithString(text).has_value() != (!text.isEmpty() && isURL(text))) {
    std::abort();
  }
  escape(text);
  readNumber(text);
  const auto start = std::chrono::steady_clock::now();
  QVUtils::doesStringMatchRegexp(text, pattern);
  if (std::chrono::steady_clock::now() - start > std::chrono::seconds(20)) std::abort();
}

}  // namespace QVFuzz
