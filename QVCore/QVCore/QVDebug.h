#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVLogLevel.h>

#include <cstdint>

/// Switches for the whole process, meant to be set by the application before the core starts; a
/// later change takes effect at the next read. All operations may be called from any thread.
class QVCORE_EXPORT QVDebug {
 public:
  /// Messages below this level (QVLogLevel) are not logged. Levels compare as unsigned numbers, so
  /// a negative one silences everything, as 6 does. Default: 0, which lets everything through.
  static void setDebugLevel(std::int32_t level);
  static std::int32_t getLogLevel();

  /// Whether the logger traces every notification that it hears. Makes the logger if needed.
  static void setNotificationLog(bool isOn);

  /// While hits are blocked, requests are numbered and queued, and dropped silently instead of
  /// being sent. Default: false.
  static void blockHits(bool isOn);
  static bool areHitBlocked();

  /// Whether the application will hand in its own web process pool, with
  /// QVCoreVariables::initUserAgentWithProcessPool(); until then no user agent is sought. Default:
  /// false.
  static void useCustomWKProcessPool(bool isOn);
  static bool shouldUseCustomProcessPool();
};
