#include <QVCore/QVEventListener.h>

#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ForkMutex.h>

#include <algorithm>
#include <atomic>
#include <utility>

using QVPlatform::CallGate;
using QVPlatform::callOut;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::Object;
using QVPlatform::String;

/// The way to one parent. It outlives the listener while a delivery is on it.
struct QVEventListener::Forwarding {
  void deliver(const Notification& notification) {
    // Keeps the parent until the gate is left.
    std::shared_ptr<const Object> owner;
    gate.enter([&] {
      if (!holdOwner(owner)) return;
      parent->onNotificationReceived(notification);
    });
  }

  /// False when the parent is being destroyed: what a derived class added may be gone already.
  /// Asked at each delivery, since a parent in its constructor has no owner yet, and in the
  /// constructor of a base class is no object yet.
  bool holdOwner(std::shared_ptr<const Object>& owner) {
    if (!object) object = dynamic_cast<const Object*>(parent);
    if (!object) return true;
    const std::weak_ptr<const Object> weakOwner = object.load()->weak_from_this();
    owner = weakOwner.lock();
    const std::weak_ptr<const Object> nobody;
    const bool hasNoOwner = !weakOwner.owner_before(nobody) && !nobody.owner_before(weakOwner);
    return owner || hasNoOwner;
  }

  IQVEventListenerDelegate* parent = nullptr;  // set before it can be seen
  std::atomic<const Object*> object{nullptr};  // the same, if it is one
  CallGate gate;
};

/// What the registrations hold. It outlives the listener while a delivery is on it.
struct QVEventListener::Line {
  std::shared_ptr<Forwarding> forwarding() const {
    const std::lock_guard lock(mutex);
    return current;
  }
  void deliver(const Notification& notification) const {
    // The parent's handler may destroy the listener: nothing of it is touched here.
    if (const auto way = forwarding()) way->deliver(notification);
  }

  mutable QVPlatform::ForkMutex mutex;
  std::shared_ptr<Forwarding> current;  // null without a parent
  /// For the first parent, who then meets no want of memory.
  std::shared_ptr<Forwarding> spare = std::make_shared<Forwarding>();
};

QVEventListener::QVEventListener() : line_(std::make_shared<Line>()) {}

QVEventListener::~QVEventListener() {
  for (const auto& used : usedCenters_) {
    if (const auto center = used.lock()) center->removeObserverWithoutWaiting(this);
  }
  setParent(nullptr);  // this waits for the deliveries under way
}

std::shared_ptr<QVEventListener> QVEventListener::init() {
  setNotificationCenter(NotificationCenter::defaultCenter());
  return std::static_pointer_cast<QVEventListener>(self());
}

bool QVEventListener::listen(const String& name) {
  bool isListening = false;
  callOut([&] {
    const auto center = notificationCenter();
    if (!center) return;
    rememberCenter(center);
    isListening = center->addObserver(
        this, [line = line_](const Notification& heard) { line->deliver(heard); }, name);
  });
  return isListening;
}

void QVEventListener::rememberCenter(const std::shared_ptr<NotificationCenter>& center) {
  const std::lock_guard lock(line_->mutex);
  const auto isCenter = [&center](const auto& used) {
    return !used.owner_before(center) && !center.owner_before(used);
  };
  if (std::none_of(usedCenters_.begin(), usedCenters_.end(), isCenter)) {
    usedCenters_.push_back(center);
  }
}

void QVEventListener::onNotification(const Notification& notification) {
  const auto line = line_;
  line->deliver(notification);
}

void QVEventListener::stopListening() {
  if (const auto center = notificationCenter()) center->removeObserverWithoutWaiting(this);
}

IQVEventListenerDelegate* QVEventListener::parent() const {
  const auto way = line_->forwarding();
  return way ? way->parent : nullptr;
}

void QVEventListener::setParent(IQVEventListenerDelegate* parent) {
  std::shared_ptr<Forwarding> way;
  if (parent) {
    {
      const std::lock_guard lock(line_->mutex);
      way.swap(line_->spare);
    }
    if (!way) way = std::make_shared<Forwarding>();
    way->parent = parent;
    way->object = dynamic_cast<const Object*>(parent);
  }
  {
    const std::lock_guard lock(line_->mutex);
    line_->current.swap(way);
  }
  if (way) way->gate.close();
}

std::shared_ptr<NotificationCenter> QVEventListener::notificationCenter() const {
  const std::lock_guard lock(line_->mutex);
  return notificationCenter_;
}

void QVEventListener::setNotificationCenter(std::shared_ptr<NotificationCenter> center) {
  const std::lock_guard lock(line_->mutex);
  notificationCenter_.swap(center);
}
