#pragma once

#include <QVCore/QVDebug.h>

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

/// Whether a line of this level is printed. Levels count as unsigned numbers on purpose: a setting
/// below 0 silences all from 0 on.
inline bool QVIsLogged(std::int32_t level) {
  const std::int32_t setting = QVDebug::getLogLevel();
  return setting != kLogSilence &&
         static_cast<std::uint32_t>(level) >= static_cast<std::uint32_t>(setting);
}
