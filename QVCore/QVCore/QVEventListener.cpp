#include <QVCore/QVEventListener.h>

#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ForkMutex.h>

#include <algorithm>
#include <atomic>
#include <forward_list>
#include <utility>

using QVPlatform::CallGate;
using QVPlatform::callOut;
using QVPlatform::Lock;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::Object;
using QVPlatform::String;

/// The way to one parent. Its gate is open while it leads to somebody; what it knows of the parent
/// changes only while the gate is closed and nobody is in it.
struct QVEventListener::Forwarding {
  Forwarding() { gate.beginClosing(); }

  void begin(IQVEventListenerDelegate* itsParent) {
    isUsed = true;
    parent = itsParent;
    object = dynamic_cast<const Object*>(parent);
    hasOwner = false;
    gate.open();
  }

  void deliver(const Notification& notification) {
    // Keeps the parent until the gate is left.
    std::shared_ptr<const Object> owner;
    gate.enter([&] {
      if (!holdOwner(owner)) return;
      parent->onNotificationReceived(notification);
    });
  }

  /// False when the parent is being destroyed: what a derived class added may be gone already.
  bool holdOwner(std::shared_ptr<const Object>& owner) {
    if (!hasOwner) return findOwner(owner);
    try {
      owner = object.load(std::memory_order_relaxed)->shared_from_this();
      return true;
    } catch (const std::bad_weak_ptr&) {
      return false;
    }
  }
  /// The same for a parent of which no owner is known. Asked at each delivery, since a parent in
  /// its constructor has no owner yet, and in the constructor of a base class is no object yet.
  bool findOwner(std::shared_ptr<const Object>& owner) {
    if (!object) object = dynamic_cast<const Object*>(parent);
    if (!object) return true;
    const std::weak_ptr<const Object> weakOwner = object.load()->weak_from_this();
    owner = weakOwner.lock();
    if (owner) hasOwner = true;
    const std::weak_ptr<const Object> nobody;
    const bool hasNoOwner = !weakOwner.owner_before(nobody) && !nobody.owner_before(weakOwner);
    return owner || hasNoOwner;
  }

  IQVEventListenerDelegate* parent = nullptr;
  std::atomic<const Object*> object{nullptr};  // the same, if it is one
  bool isUsed = false;                         // until it is closed; guarded by the line's mutex
  std::atomic<bool> hasOwner{false};           // once known it is asked more cheaply
  CallGate gate;
};

/// What the registrations hold. It outlives the listener while a delivery is on it.
struct QVEventListener::Line {
  void deliver(const Notification& notification) {
    // The parent's handler may destroy the listener: nothing of it is touched here.
    if (Forwarding* const way = current) way->deliver(notification);
  }

  /// A delivery may have found any of the ways and be late to enter it, so they stay, and are used
  /// again. There are at most as many as calls of setParent() at once and from within one another's
  /// deliveries, and in the child of a fork() those of the parent.
  Forwarding& freeWay() QV_REQUIRES(mutex) {
    for (Forwarding& way : ways) {
      if (!way.isUsed && way.gate.isIdle()) return way;
    }
    return ways.emplace_front();
  }

  QVPlatform::ForkMutex mutex;
  std::atomic<Forwarding*> current{nullptr};  // null without a parent
  /// One is there for the first parent, who then meets no want of memory.
  std::forward_list<Forwarding> ways QV_GUARDED_BY(mutex){1};
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
  const Lock lock(mutex());
  const auto isCenter = [&center](const auto& used) {
    return !used.owner_before(center) && !center.owner_before(used);
  };
  if (std::none_of(usedCenters_.begin(), usedCenters_.end(), isCenter)) {
    usedCenters_.push_back(center);
  }
}

QVPlatform::Mutex& QVEventListener::mutex() const { return line_->mutex; }

void QVEventListener::onNotification(const Notification& notification) {
  const auto line = line_;
  line->deliver(notification);
}

void QVEventListener::stopListening() {
  if (const auto center = notificationCenter()) center->removeObserverWithoutWaiting(this);
}

IQVEventListenerDelegate* QVEventListener::parent() const {
  const Lock lock(line_->mutex);
  const Forwarding* const way = line_->current;
  return way ? way->parent : nullptr;
}

void QVEventListener::setParent(IQVEventListenerDelegate* parent) {
  Forwarding* replaced = nullptr;
  {
    const Lock lock(line_->mutex);
    Forwarding* const way = parent ? &line_->freeWay() : nullptr;
    if (way) way->begin(parent);
    replaced = line_->current.exchange(way);
  }
  if (!replaced) return;
  replaced->gate.close();
  const Lock lock(line_->mutex);
  replaced->isUsed = false;
}

std::shared_ptr<NotificationCenter> QVEventListener::notificationCenter() const {
  const Lock lock(mutex());
  return notificationCenter_;
}

/// The registrations stay on the earlier center, on purpose, while senders post on the new one at
/// once.
void QVEventListener::setNotificationCenter(std::shared_ptr<NotificationCenter> center) {
  const Lock lock(mutex());
  notificationCenter_.swap(center);
}
