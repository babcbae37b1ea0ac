#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// Writes dates as text by a pattern, always with English names of days and months, whatever the
/// locale of the device: what it writes is read by servers.
///
/// Threads: immutable; any number of threads may use one formatter.
class QVPLATFORM_EXPORT DateFormatter {
 public:
  /// The pattern is in Unicode's date format syntax ("EEE, dd MMM yyyy HH:mm:ss zzz"); the time
  /// zone is given by name ("GMT", "Europe/Paris"), where an unknown one counts as GMT.
  DateFormatter(String pattern, String timeZoneName) noexcept;

  /// The text; null when the pattern is null or not well formed, and for a date that is not a
  /// number. Years end near 5.8 million: a date beyond, infinity included, is written as the last
  /// day of the calendar (Tue, 20 Dec 5828963), one too far back as its first.
  String stringFromDate(Date date) const;

 private:
  String pattern_;
  String timeZoneName_;
};

}  // namespace QVPlatform
