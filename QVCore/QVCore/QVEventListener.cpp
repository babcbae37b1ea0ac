#include <QVCore/QVEventListener.h>

#include <algorithm>
#include <utility>

using QVPlatform::CallGate;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::Object;
using QVPlatform::String;

/// The way to one parent. It outlives the listener while a delivery is on it.
struct QVEventListener::Forwarding {
  explicit Forwarding(IQVEventListenerDelegate* itsParent) : parent(itsParent) {
    if (const auto* object = dynamic_cast<const Object*>(parent)) owner = object->weak_from_this();
    isOwned = !owner.expired();
  }

  IQVEventListenerDelegate* const parent;
  std::weak_ptr<const Object> owner;  // the parent, if a std::shared_ptr holds it
  bool isOwned;
  CallGate gate;
};

QVEventListener::QVEventListener() : forwarding_(std::make_shared<Forwarding>(nullptr)) {}

QVEventListener::~QVEventListener() {
  for (const auto& used : usedCenters_) {
    if (const auto center = used.lock()) center->removeObserver(this);
  }
}

std::shared_ptr<QVEventListener> QVEventListener::init() {
  setNotificationCenter(NotificationCenter::defaultCenter());
  return std::static_pointer_cast<QVEventListener>(self());
}

void QVEventListener::listen(const String& name) {
  std::shared_ptr<NotificationCenter> center;
  {
    const std::lock_guard lock(mutex_);
    center = notificationCenter_;
    if (!center) return;
    const auto isCenter = [&center](const auto& used) { return used.lock() == center; };
    if (std::none_of(usedCenters_.begin(), usedCenters_.end(), isCenter)) {
      usedCenters_.push_back(center);
    }
  }
  center->addObserver(
      this, [this](const Notification& notification) { onNotification(notification); }, name);
}

void QVEventListener::onNotification(const Notification& notification) {
  // The parent's handler may destroy this listener: nothing of it is touched after the call.
  const auto way = forwarding();
  if (!way->parent) return;
  // Keeps the parent until the gate is left. Once the parent's destructor has begun, what a derived
  // class added may be gone already: then there is no owner any more, and nobody is called.
  std::shared_ptr<const Object> owner;
  way->gate.enter([&] {
    if (way->isOwned && !(owner = way->owner.lock())) return;
    way->parent->onNotificationReceived(notification);
  });
}

void QVEventListener::stopListening() {
  if (const auto center = notificationCenter()) center->removeObserver(this);
}

IQVEventListenerDelegate* QVEventListener::parent() const { return forwarding()->parent; }

void QVEventListener::setParent(IQVEventListenerDelegate* parent) {
  auto way = std::make_shared<Forwarding>(parent);
  {
    const std::lock_guard lock(mutex_);
    forwarding_.swap(way);
  }
  way->gate.close();
}

std::shared_ptr<NotificationCenter> QVEventListener::notificationCenter() const {
  const std::lock_guard lock(mutex_);
  return notificationCenter_;
}

void QVEventListener::setNotificationCenter(std::shared_ptr<NotificationCenter> center) {
  const std::lock_guard lock(mutex_);
  notificationCenter_.swap(center);
}

std::shared_ptr<QVEventListener::Forwarding> QVEventListener::forwarding() const {
  const std::lock_guard lock(mutex_);
  return forwarding_;
}
