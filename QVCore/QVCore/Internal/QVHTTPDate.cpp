#include <QVCore/Internal/QVHTTPDate.h>

#include <QVPlatform/Text/DateFormatter.h>

#include <chrono>
#include <cstdio>

using QVPlatform::Date;
using QVPlatform::String;

namespace {

constexpr std::uint64_t kEndOfFourDigits = 253'402'300'800;  // 1 January 10000
constexpr std::size_t kSize = 30;                            // with the zero

const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

/// Without a formatter for all years that matter: ICU ends the process when memory runs out in it.
String QVHTTPDate(std::uint64_t seconds) {
  if (seconds >= kEndOfFourDigits) {
    return QVPlatform::DateFormatter("EEE, dd MMM yyyy HH:mm:ss zzz", "GMT")
        .stringFromDate(Date{static_cast<double>(seconds)});
  }
  using namespace std::chrono;
  const sys_seconds time{std::chrono::seconds(seconds)};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  char text[kSize];
  std::snprintf(text, sizeof text, "%s, %02u %s %04d %02d:%02d:%02d GMT",
                kDays[weekday{day}.c_encoding()], unsigned{date.day()},
                kMonths[unsigned{date.month()} - 1], int{date.year()},
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return String(text);
}
