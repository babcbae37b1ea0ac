#include <QVCore/QVDebug.h>

#include <QVCore/QVLogger.h>

#include <atomic>

namespace {

constinit std::atomic<std::int32_t> logLevel = 0;
constinit std::atomic<bool> hitsAreBlocked = false;
constinit std::atomic<bool> customProcessPool = false;

}  // namespace

void QVDebug::setDebugLevel(std::int32_t level) { logLevel = level; }

std::int32_t QVDebug::getLogLevel() { return logLevel; }

void QVDebug::setNotificationLog(bool isOn) {
  QVLogger::sharedInstance()->setDebugVerboseNotificationLog(isOn);
}

void QVDebug::blockHits(bool isOn) { hitsAreBlocked = isOn; }

bool QVDebug::areHitBlocked() { return hitsAreBlocked; }

void QVDebug::useCustomWKProcessPool(bool isOn) { customProcessPool = isOn; }

bool QVDebug::shouldUseCustomProcessPool() { return customProcessPool; }
