#pragma once

#include <cstdint>

/// What the core's own lines on the log are about, and so what a setting lets through
/// (QVDebug::setDebugLevel()): its own level, and those above. Whoever else logs may pass any
/// number. docs/log.md lists the lines.
enum QVLogLevel : std::int32_t {
  QVLogLevelTrace = 0,  ///< Each notification that the logger hears, if it is asked to trace them.
  QVLogLevelOfflineHits = 1,  ///< Hits that are saved and restored.
  QVLogLevelTraffic = 2,      ///< Hits that are sent, fail or are refused; connectivity; downloads.
  QVLogLevelNumberParsing = 3,   ///< Text that should have been a number.
  QVLogLevelConfigurations = 4,  ///< Configurations that cannot be read; what requests hold.
  QVLogLevelSilence = 6,         ///< As a setting: nothing is logged.
};
