#include <QVPlatform/Text/DateFormatter.h>

#include <unicode/smpdtfmt.h>

#include <cmath>
#include <string>
#include <utility>

namespace QVPlatform {

DateFormatter::DateFormatter(String pattern, String timeZoneName) noexcept
    : pattern_(std::move(pattern)), timeZoneName_(std::move(timeZoneName)) {}

String DateFormatter::stringFromDate(Date date) const {
  if (pattern_.isNull() || std::isnan(date.secondsSince1970)) return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat format(icu::UnicodeString::fromUTF8(pattern_.view()),
                               icu::Locale("en_US_POSIX"), status);
  if (U_FAILURE(status)) return nullptr;
  format.adoptTimeZone(
      icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZoneName_.view())));
  icu::UnicodeString units;
  icu::FieldPositionIterator* const noFields = nullptr;
  format.format(date.secondsSince1970 * 1000, units, noFields, status);
  if (U_FAILURE(status)) return nullptr;
  std::string text;
  units.toUTF8String(text);
  return String(text);
}

}  // namespace QVPlatform
