#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>

#include <cstdint>

/// The patterns of QVUtils, to be found anywhere in a text. They are loose on purpose: the dots of
/// a software version match any character, and any three digits make a group of an IP address.
QVCORE_EXPORT extern const QVPlatform::String kQVRegexpDynamicVariable;
QVCORE_EXPORT extern const QVPlatform::String kQVRegexpIP;
QVCORE_EXPORT extern const QVPlatform::String kQVRegexpAppleLocale;
QVCORE_EXPORT extern const QVPlatform::String kQVRegexpScreenResolution;
QVCORE_EXPORT extern const QVPlatform::String kQVRegexpSoftwareVersion;
QVCORE_EXPORT extern const QVPlatform::String kQVRegexpUUID;

/// Recognises the shape of a value and turns text into numbers, for the modules of the kit.
///
/// Threads: stateless; every operation may be called from any thread. Nothing is thrown but
/// std::bad_alloc, when there is no memory for the result or for finding it.
class QVCORE_EXPORT QVUtils {
 public:
  QVUtils() = delete;

  /// Whether the pattern (ICU syntax, see QVPlatform::RegularExpression) matches anywhere in the
  /// text. A pattern that cannot be compiled, null and one of more than 10000 bytes included,
  /// matches every text; a text that is null matches no other pattern. False as well when the
  /// search had to be given up, after a second or with eight megabytes of memory in use.
  static bool doesStringMatchRegexp(const QVPlatform::String& text,
                                    const QVPlatform::String& pattern);
  /// A name between two number signs: "#QV_SDK_ID#".
  static bool matchDynamicVariableRegexp(const QVPlatform::String& text);
  /// "en_US".
  static bool matchAppleLocaleRegexp(const QVPlatform::String& text);
  /// "10.0.0.1".
  static bool matchIPRegexp(const QVPlatform::String& text);
  /// "14.4", "1.2.3".
  static bool matchSoftwareVersionRegexp(const QVPlatform::String& text);
  /// "1080x1920".
  static bool matchScreenResolutionRegexp(const QVPlatform::String& text);
  /// A UUID in upper case.
  static bool matchUUIDRegexp(const QVPlatform::String& text);

  /// Whether the text holds nothing but decimal digits, of any script. True for empty text, false
  /// for null.
  static bool isNumeric(const QVPlatform::String& text);

  /// The number that the text stands for in the current locale, as QVPlatform::NumberFormatter
  /// reads it: a 64-bit integer when it is one and fits, else a double; nil when it is not a
  /// number. Blanks in front are passed over, anything behind makes it none. A text that the
  /// formatter refuses to judge, one of more than 4096 bytes above all, gives nil, too, and a log
  /// line at level 3.
  static QVPlatform::Value nsNumberFromString(const QVPlatform::String& text);
  /// nsNumberFromString() as a 32-bit integer, by the rules of QVPlatform::Value::intValue(): 0 for
  /// nil, without its fraction; of an integer beyond 32 bits the low 32 bits ("4294967301" gives
  /// 5), of what only a double holds the nearest end of the range.
  static std::int32_t numberFromNSString(const QVPlatform::String& text);
};

/// The text percent-encoded for use in a URL: each byte of its UTF-8 that is neither an ASCII
/// letter or digit nor one of ".-_~" becomes a percent sign and two upper-case hexadecimal digits.
/// A zero byte ends the text. Null for null. May be called from any thread; throws nothing but
/// std::bad_alloc.
QVCORE_EXPORT QVPlatform::String QVURLEncodedString(const QVPlatform::String& text);
