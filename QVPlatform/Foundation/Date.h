#pragma once

#include <chrono>
#include <compare>

namespace QVPlatform {

/// A span of time in seconds.
using TimeInterval = double;

/// A point in time: seconds since 1970-01-01 00:00:00 UTC, leap seconds not counted.
struct Date {
  TimeInterval secondsSince1970 = 0;

  static Date now() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return {std::chrono::duration<TimeInterval>(sinceEpoch).count()};
  }
  auto operator<=>(const Date&) const = default;
};

}  // namespace QVPlatform
