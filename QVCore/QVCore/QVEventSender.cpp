#include <QVCore/QVEventSender.h>

#include <QVPlatform/Foundation/CallOut.h>

using QVPlatform::NotificationCenter;

std::shared_ptr<QVEventSender> QVEventSender::init() {
  setNotificationCenter(NotificationCenter::defaultCenter());
  return std::static_pointer_cast<QVEventSender>(self());
}

bool QVEventSender::send(const QVPlatform::Notification& notification) {
  const auto center = notificationCenter();
  if (center) QVPlatform::callOut([&] { center->postNotification(notification); });
  return true;
}
