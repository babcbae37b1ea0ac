#include <QVCore/QVUtils.h>

#include <QVCore/QVLogLevel.h>
#include <QVCore/QVLogger.h>
#include <QVPlatform/Text/CharacterSet.h>
#include <QVPlatform/Text/NumberFormatter.h>
#include <QVPlatform/Text/RegularExpression.h>

#include <string>
#include <string_view>

using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)
using QVPlatform::Value;

namespace {

// The characters that RFC 3986 calls unreserved; not std::isalnum, which asks the locale.
bool isUnreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '-' || c == '_' || c == '~';
}

}  // namespace

constexpr String kQVRegexpDynamicVariable = "#[^#]+#"_string;
constexpr String kQVRegexpIP = "([0-9]{1,3}[.]){3}[0-9]{1,3}"_string;
constexpr String kQVRegexpAppleLocale = "[a-z]{2,}_[A-Z]{2,}"_string;
constexpr String kQVRegexpScreenResolution = "[0-9]{1,4}x[0-9]{1,4}"_string;
// The dots stand for any character, on purpose.
constexpr String kQVRegexpSoftwareVersion = "[0-9]+.[0-9]+(.[0-9]+)*"_string;
constexpr String kQVRegexpUUID =
    "[A-F0-9]{8}-[A-F0-9]{4}-[A-F0-9]{4}-[A-F0-9]{4}-[A-F0-9]{12}"_string;

bool QVUtils::doesStringMatchRegexp(const String& text, const String& pattern) {
  const auto expression = QVPlatform::RegularExpression::regularExpressionWithPattern(pattern);
  // A pattern that cannot be compiled matches everything, on purpose.
  return !expression || expression->firstMatchInString(text).has_value();
}

bool QVUtils::matchDynamicVariableRegexp(const String& text) {
  return doesStringMatchRegexp(text, kQVRegexpDynamicVariable);
}

bool QVUtils::matchAppleLocaleRegexp(const String& text) {
  return doesStringMatchRegexp(text, kQVRegexpAppleLocale);
}

bool QVUtils::matchIPRegexp(const String& text) { return doesStringMatchRegexp(text, kQVRegexpIP); }

bool QVUtils::matchSoftwareVersionRegexp(const String& text) {
  return doesStringMatchRegexp(text, kQVRegexpSoftwareVersion);
}

bool QVUtils::matchScreenResolutionRegexp(const String& text) {
  return doesStringMatchRegexp(text, kQVRegexpScreenResolution);
}

bool QVUtils::matchUUIDRegexp(const String& text) {
  return doesStringMatchRegexp(text, kQVRegexpUUID);
}

bool QVUtils::isNumeric(const String& text) { return QVPlatform::consistsOfDecimalDigits(text); }

Value QVUtils::nsNumberFromString(const String& text) {
  String failure;
  Value number = QVPlatform::NumberFormatter().numberFromString(text, &failure);
  if (!failure.isNull()) {
    const Value noUserInfo;
    const String message = QVPlatform::stringWithFormat(
        "Invalid value when converting to number: %@, %@, %@", {text, failure, noUserInfo});
    QVLogger::sharedInstance()->logMessageWithLevel(message, QVLogLevelNumberParsing);
  }
  return number;
}

std::int32_t QVUtils::numberFromNSString(const String& text) {
  return nsNumberFromString(text).intValue();
}

String QVURLEncodedString(const String& text) {
  if (text.isNull()) return nullptr;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : std::string_view(text.UTF8String())) {
    if (isUnreserved(c)) {
      encoded.push_back(c);
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
  }
  return String(encoded);
}
