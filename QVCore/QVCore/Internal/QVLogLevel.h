#pragma once

#include <cstdint>

/// What the core's own lines on the log are about. Whoever else logs passes plain numbers, and so
/// does the application that sets the lowest level to be printed.
enum QVLogLevel : std::int32_t {
  kLogTrace = 0,
  kLogOfflineHits = 1,
  kLogTraffic = 2,  // and connectivity
  kLogNumberParsing = 3,
  kLogConfigurations = 4,  // and what requests hold
  kLogSilence = 6,         // as a setting; nothing is logged at it
};
