#pragma once

#include <QVCore/QVDebug.h>
#include <QVCore/QVLogLevel.h>

#include <cstdint>

/// Whether a line of this level is printed. Levels count as unsigned numbers on purpose: a setting
/// below 0 silences all from 0 on.
inline bool QVIsLogged(std::int32_t level) {
  const std::int32_t setting = QVDebug::getLogLevel();
  return setting != QVLogLevelSilence &&
         static_cast<std::uint32_t>(level) >= static_cast<std::uint32_t>(setting);
}
