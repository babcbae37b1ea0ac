#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/Mutex.h>

#include <memory>
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
/// perhaps on its thread. Such an owner may set itself as the parent in its constructor, if nothing
/// is posted on another thread before the std::shared_ptr has it. Any other owner calls
/// setParent(nullptr) before anything of its own is gone: after that, and after the listener's own
/// destruction, nothing is delivered any more, and no other thread is still in
/// onNotificationReceived().
class QVCORE_EXPORT QVEventListener : public QVPlatform::Object {
 public:
  QVEventListener();
  /// Ends all registrations, also those on earlier centers, and returns when no other thread is in
  /// the parent's onNotificationReceived().
  ~QVEventListener() override;

  /// Chooses the default center. Returns the receiver.
  std::shared_ptr<QVEventListener> init();

  /// Registers on the center for exactly this name, from any object. Called twice with one name,
  /// each such notification arrives twice. False, and nothing happens, without a center, with a
  /// null name, and with a line on the console log when memory is short.
  bool listen(const QVPlatform::String& name);
  /// Hands the notification to the parent, on the calling thread; without a parent, to nobody.
  void onNotification(const QVPlatform::Notification& notification);
  /// Ends the registrations on the current center, for all names, and returns at once: a delivery
  /// that is under way on another thread may still arrive. So the caller may hold a lock that
  /// onNotificationReceived() takes.
  void stopListening();

  /// The owner, or null.
  IQVEventListenerDelegate* parent() const;
  /// Returns when no other thread is in the earlier parent's onNotificationReceived(). Null and the
  /// listener's first parent take no memory; with a later one std::bad_alloc may be thrown, and the
  /// earlier one stays.
  void setParent(IQVEventListenerDelegate* parent);

  std::shared_ptr<QVPlatform::NotificationCenter> notificationCenter() const;
  /// Later calls of listen() and stopListening() act on this center; registrations stay where they
  /// are.
  void setNotificationCenter(std::shared_ptr<QVPlatform::NotificationCenter> center);

 private:
  struct Forwarding;
  struct Line;

  void rememberCenter(const std::shared_ptr<QVPlatform::NotificationCenter>& center);
  /// The line's.
  QVPlatform::Mutex& mutex() const;

  const std::shared_ptr<Line> line_;
  std::shared_ptr<QVPlatform::NotificationCenter> notificationCenter_ QV_GUARDED_BY(mutex());
  /// Where this listener has registered: it must not be called there once it is gone.
  std::vector<std::weak_ptr<QVPlatform::NotificationCenter>> usedCenters_ QV_GUARDED_BY(mutex());
};
