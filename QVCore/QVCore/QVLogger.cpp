#include <QVCore/QVLogger.h>

#include <QVCore/Internal/QVIsLogged.h>
#include <QVCore/Internal/QVSharedService.h>
#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Log.h>

#include <utility>

using QVPlatform::callOut;
using QVPlatform::FileManager;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::Value;

namespace {

/// Most of them are only traced: verboseNotificationLog() is all that hears of them.
const String* const kLoggedNames[] = {
    &kQVNotification_HitSent,
    &kQVNotification_HTTPRequest,
    &kQVNotification_HTTPRequestSent,
    &kQVNotification_HTTPResponse,
    &kQVNotification_HTTPRequestError,
    &kQVNotification_SegmentRequest,
    &kQVNotification_SegmentResponse,
    &kQVNotification_ConfigurationRequest,
    &kQVNotification_ConfigurationResponse,
    &kQVNotification_InternetUp,
    &kQVNotification_InternetDown,
    &kQVNotification_InternetChanged,
    &kQVNotification_UserAgentAvailable,
    &kQVNotification_Unknown,
    &kQVNotification_OnBackground,
    &kQVNotification_OnForeground,
    &kQVNotification_StartingTheSDK,
    &kQVNotification_StoppingTheSDK,
};

}  // namespace

std::atomic<std::int32_t> QVLogger::QV_INIT_STATE = QVInitStateNever;

std::shared_ptr<QVLogger> QVLogger::sharedInstance() {
  return QVSharedInstance<QVLogger>::get(QV_INIT_STATE);
}

QVLogger::~QVLogger() { end(); }

std::shared_ptr<QVLogger> QVLogger::init() {
  QVGuardedInit(QV_INIT_STATE, [this] { initialise(); });
  return std::static_pointer_cast<QVLogger>(self());
}

std::shared_ptr<QVLogger> QVLogger::reinit() {
  QV_INIT_STATE = QVInitStateRequestedAgain;
  return init();
}

void QVLogger::initialise() {
  auto sender = std::make_shared<QVEventSender>()->init();
  auto listener = makeListener(kLoggedNames);
  begin(this, std::move(sender));
  begin(this, std::move(listener));
  setDebugVerboseNotificationLog(false);
  QV_INIT_STATE = QVInitStateDone;
}

void QVLogger::logMessageWithLevel(const Value& message, std::int32_t level) {
  if (!QVIsLogged(level)) return;
  callOut([&] { QVPlatform::printLine(message.description(), level); });
}

void QVLogger::logToConsole(const Value& message) {
  callOut([&] { QVPlatform::printLine(message.description()); });
}

String QVLogger::privateQVDirectory() {
  return stringWithFormat("%@/%@",
                          {QVPlatform::Application::libraryDirectory(), kQVFilePrivateDocuments});
}

String QVLogger::getPrivatePathToFile(const String& name) {
  String path;
  callOut([&] {
    const String directory = privateQVDirectory();
    if (!FileManager::fileExistsAtPath(directory)) {
      QVPlatform::Application::makeLibraryDirectory();
      FileManager::createDirectoryAtPath(directory);
    }
    path = directory.stringByAppendingPathComponent(name);
  });
  return path;
}

void QVLogger::changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) {
  moveListener(center);
  moveSender(center);
}

void QVLogger::onNotificationReceived(const Notification& notification) {
  callOut([&] { handle(notification); });
}

void QVLogger::handle(const Notification& notification) {
  verboseNotificationLog(notification);
  const String& name = notification.name();
  if (name == kQVNotification_StoppingTheSDK) {
    // For good: a start does not bring it back, reinit() does.
    if (const auto listener = listenerDelegate()) listener->stopListening();
  } else if (name == kQVNotification_HitSent) {
    logHitSent(notification);
  } else if (name == kQVNotification_InternetUp || name == kQVNotification_InternetDown) {
    logMessageWithLevel(name, QVLogLevelTraffic);
  } else if (name == kQVNotification_HTTPRequestError) {
    logRequestError(notification);
  }
}

void QVLogger::logRequestError(const Notification& notification) {
  const auto userInfo = notification.userInfo();
  logMessageWithLevel(
      stringWithFormat("%@: ID: %@, Request Type: %@, URL: %@",
                       {notification.name(), userInfo.get(kQVUserInfo_RequestID),
                        userInfo.get(kQVUserInfo_RequestType), userInfo.get(kQVUserInfo_URLKey)}),
      QVLogLevelTraffic);
}

void QVLogger::logHitSent(const Notification& notification) {
  callOut([&] {
    const auto userInfo = notification.userInfo();
    const Value url = userInfo.get(kQVUserInfo_URLKey);
    const Value text = url.isNil() ? userInfo.get(kQVUserInfo_DataKey)
                                   : url.description().stringByReplacingPercentEscapes();
    logMessageWithLevel(stringWithFormat("Hit sent: %@: %@", {notification.object(), text}),
                        QVLogLevelTraffic);
  });
}

void QVLogger::verboseNotificationLog(const Notification& notification) {
  if (!debugVerboseNotificationLog()) return;
  callOut([&] {
    logMessageWithLevel(stringWithFormat("%@ | (%@)", {notification.name(), notification.object()}),
                        QVLogLevelTrace);
  });
}
