#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Foundation/NotificationCenter.h>

#include <memory>
#include <mutex>
#include <vector>

/// Owner of a QVEventListener.
class QVCORE_EXPORT IQVEventListenerDelegate {
 public:
  virtual ~IQVEventListenerDelegate() = default;

  /// As IQVEventSenderDelegate::changeNotificationCenter().
  virtual void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) = 0;
  /// Receives what the listener listens for, on the thread that posted it; two threads may be in it
  /// at once.
  virtual void onNotificationReceived(const QVPlatform::Notification& notification) = 0;
};

/// Receives notifications for its owner.
///
/// Threads: all operations may be called from any thread, and from within onNotificationReceived().
/// The owner holds it; it does not hold the owner, except during a delivery, if the owner is an
/// Object in a std::shared_ptr: then the owner's destruction begins after the last delivery,
/// perhaps on its thread. Any other owner calls setParent(nullptr) before anything of its own is
/// gone: after that, and after the listener's own destruction, nothing is delivered any more, and
/// no other thread is still in onNotificationReceived().
class QVCORE_EXPORT QVEventListener : public QVPlatform::Object {
 public:
  QVEventListener();
  /// Ends all registrations, also those on earlier centers.
  ~QVEventListener() override;

  /// Chooses the default center. Returns the receiver.
  std::shared_ptr<QVEventListener> init();

  /// Registers on the center for exactly this name, from any object. Called twice with one name,
  /// each such notification arrives twice. Without a center, or with a null name, nothing happens.
  void listen(const QVPlatform::String& name);
  /// Hands the notification to the parent, on the calling thread; without a parent, to nobody.
  void onNotification(const QVPlatform::Notification& notification);
  /// Ends the registrations on the current center, for all names.
  void stopListening();

  /// The owner, or null.
  IQVEventListenerDelegate* parent() const;
  /// Returns when no other thread is in the earlier parent's onNotificationReceived().
  void setParent(IQVEventListenerDelegate* parent);

  std::shared_ptr<QVPlatform::NotificationCenter> notificationCenter() const;
  /// Later calls of listen() and stopListening() act on this center; registrations stay where they
  /// are.
  void setNotificationCenter(std::shared_ptr<QVPlatform::NotificationCenter> center);

 private:
  struct Forwarding;

  std::shared_ptr<Forwarding> forwarding() const;

  mutable std::mutex mutex_;
  std::shared_ptr<Forwarding> forwarding_;
  std::shared_ptr<QVPlatform::NotificationCenter> notificationCenter_;
  /// Where this listener has registered: it must not be called there once it is gone.
  std::vector<std::weak_ptr<QVPlatform::NotificationCenter>> usedCenters_;
};
