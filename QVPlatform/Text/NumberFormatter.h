#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

/// Reads numbers as people of a locale write them, without a style: no grouping, no percent, no
/// currency.
///
/// Threads: immutable; any number of threads may use one formatter.
class QVPLATFORM_EXPORT NumberFormatter {
 public:
  /// For a locale ("de_DE"); null stands for the current one, which is what ICU finds at its first
  /// use in the process: the C library's locale, LC_ALL, LC_MESSAGES or LANG. An unknown locale
  /// reads numbers as no country in particular does.
  explicit NumberFormatter(String localeIdentifier = nullptr) noexcept;

  /// The number that the whole text stands for: a 64-bit integer when it is one and fits, else a
  /// double.
  ///
  /// A number has a minus sign or none, decimal digits of any script, a fraction behind the
  /// locale's decimal separator, and an exponent ("1.5E3"). Blanks (tabs and the space characters
  /// of all scripts) in front of it are passed over. Nil for everything else: null, empty text,
  /// white space behind, line ends, a plus sign, grouping separators, what is infinite or not a
  /// number at all.
  ///
  /// Nil, too, when the text cannot be judged: it is longer than 4096 bytes, or ICU has no data to
  /// read numbers with. Only then is `failure`, if given, set to a text that says why.
  Value numberFromString(const String& text, String* failure = nullptr) const;

 private:
  String localeIdentifier_;
};

}  // namespace QVPlatform
