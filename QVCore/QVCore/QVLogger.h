#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVLogLevel.h>
#include <QVCore/QVParticipant.h>
#include <QVCore/QVSingleton.h>
#include <QVPlatform/Foundation/Value.h>

#include <atomic>
#include <cstdint>
#include <memory>

/// Writes the kit's diagnostic lines to standard output, filtered by one level, and turns some of
/// the kit's notifications into such lines. It also knows the kit's private directory.
///
/// Levels are numbers, of which QVLogLevel names those of the core. An application that has a log
/// of its own takes the lines with QVPlatform::setLogSink(). Threads: all operations may be called
/// from any thread.
class QVCORE_EXPORT QVLogger : public QVSingleton,
                               public IQVEventSenderDelegate,
                               public IQVEventListenerDelegate,
                               public QVParticipant {
 public:
  static std::shared_ptr<QVLogger> sharedInstance();
  ~QVLogger() override;

  /// See QVSingleton. Both return the receiver. reinit() also resumes listening after a stop.
  std::shared_ptr<QVLogger> init();
  std::shared_ptr<QVLogger> reinit();

  /// Prints the message if its level, as an unsigned number, is at least the setting's.
  void logMessageWithLevel(const QVPlatform::Value& message, std::int32_t level);
  /// Prints the message's description and a line feed, and nothing else, on standard output. An
  /// output that nobody reads loses lines rather than hold the caller (QVPlatform::printLine).
  void logToConsole(const QVPlatform::Value& message);

  /// Path of the private directory: "QVPrivateDocuments" in the Library directory. Does not make
  /// it.
  static QVPlatform::String privateQVDirectory();
  /// Path of a file in the private directory, which is made if it is missing; that this failed
  /// shows when the file is opened. Null when memory runs out.
  QVPlatform::String getPrivatePathToFile(const QVPlatform::String& name);

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override;
  void onNotificationReceived(const QVPlatform::Notification& notification) override;
  /// Logs "Hit sent: " with the notification's object and its unescaped "url", or else its "data".
  void logHitSent(const QVPlatform::Notification& notification);
  /// Logs the notification's name and object, if debugVerboseNotificationLog() is on.
  void verboseNotificationLog(const QVPlatform::Notification& notification);

  bool debugVerboseNotificationLog() const noexcept { return debugVerboseNotificationLog_; }
  void setDebugVerboseNotificationLog(bool isOn) noexcept { debugVerboseNotificationLog_ = isOn; }

 private:
  void handle(const QVPlatform::Notification& notification);
  void initialise();
  void logRequestError(const QVPlatform::Notification& notification);

  static std::atomic<std::int32_t> QV_INIT_STATE;

  std::atomic<bool> debugVerboseNotificationLog_{false};
};
