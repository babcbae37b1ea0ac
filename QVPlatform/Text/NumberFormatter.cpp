#include <QVPlatform/Text/NumberFormatter.h>

#include <unicode/numfmt.h>
#include <unicode/uchar.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <utility>

namespace QVPlatform {
namespace {

// Reading takes time in proportion to the square of the number of digits: 6 s for a million.
constexpr std::size_t kLongestText = 4096;

void report(String* failure, const String& reason) {
  if (failure) *failure = reason;
}

Value numberOf(const icu::Formattable& parsed) {
  UErrorCode status = U_ZERO_ERROR;
  if (parsed.getType() != icu::Formattable::kDouble) return Value(parsed.getInt64(status));
  const double number = parsed.getDouble();
  return std::isfinite(number) ? Value(number) : Value();
}

icu::UnicodeString withoutLeadingBlanks(const String& text) {
  icu::UnicodeString units = icu::UnicodeString::fromUTF8(text.view());
  std::int32_t blanks = 0;
  while (blanks < units.length() && u_isblank(units[blanks])) ++blanks;
  return units.remove(0, blanks);
}

}  // namespace

NumberFormatter::NumberFormatter(String localeIdentifier) noexcept
    : localeIdentifier_(std::move(localeIdentifier)) {}

Value NumberFormatter::numberFromString(const String& text, String* failure) const {
  if (text.view().size() > kLongestText) {
    report(failure, "The text is too long for a number");
    return nullptr;
  }
  UErrorCode status = U_ZERO_ERROR;
  // For a null pointer ICU takes the current locale.
  const icu::Locale locale(localeIdentifier_.UTF8String());
  const std::unique_ptr<icu::NumberFormat> format(
      icu::NumberFormat::createInstance(locale, UNUM_DECIMAL, status));
  if (U_FAILURE(status) || !format) {
    report(failure, String("The number formatter cannot be made: ") + u_errorName(status));
    return nullptr;
  }
  format->setGroupingUsed(false);
  const icu::UnicodeString units = withoutLeadingBlanks(text);
  icu::Formattable parsed;
  icu::ParsePosition end;
  format->parse(units, parsed, end);
  const bool isWholeText = end.getIndex() > 0 && end.getIndex() == units.length();
  return isWholeText ? numberOf(parsed) : Value();
}

}  // namespace QVPlatform
