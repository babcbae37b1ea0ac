#include <QVCore/QVEventSender.h>

#include <QVPlatform/Foundation/CallOut.h>

#include <utility>

using QVPlatform::Lock;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;

namespace {

void post(NotificationCenter& center, const Notification& notification) {
  QVPlatform::callOut([&] { center.postNotification(notification); });
}

}  // namespace

std::shared_ptr<QVEventSender> QVEventSender::init() {
  setNotificationCenter(NotificationCenter::defaultCenter());
  return std::static_pointer_cast<QVEventSender>(self());
}

bool QVEventSender::send(const Notification& notification) {
  if (NotificationCenter* const lasting = lastingCenter_) {
    post(*lasting, notification);
  } else if (const auto center = notificationCenter()) {
    post(*center, notification);
  }
  return true;
}

std::shared_ptr<NotificationCenter> QVEventSender::notificationCenter() const {
  const Lock lock(mutex_);
  return notificationCenter_;
}

void QVEventSender::setNotificationCenter(std::shared_ptr<NotificationCenter> center) {
  const bool isLasting = center == NotificationCenter::defaultCenter();
  const Lock lock(mutex_);
  lastingCenter_ = isLasting ? center.get() : nullptr;
  notificationCenter_.swap(center);
}
