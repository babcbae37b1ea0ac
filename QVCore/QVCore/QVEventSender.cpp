#include <QVCore/QVEventSender.h>

using QVPlatform::NotificationCenter;

std::shared_ptr<QVEventSender> QVEventSender::init() {
  setNotificationCenter(NotificationCenter::defaultCenter());
  return std::static_pointer_cast<QVEventSender>(self());
}

bool QVEventSender::send(const QVPlatform::Notification& notification) {
  if (const auto center = notificationCenter()) center->postNotification(notification);
  return true;
}
