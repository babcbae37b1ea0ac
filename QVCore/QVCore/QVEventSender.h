#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/ForkMutex.h>

#include <atomic>
#include <memory>

/// Owner of a QVEventSender.
class QVCORE_EXPORT IQVEventSenderDelegate {
 public:
  virtual ~IQVEventSenderDelegate() = default;

  /// Moves the owner's sender, and its listener if it has one, to another center. What was already
  /// registered on the old center stays there and goes on delivering.
  virtual void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) = 0;
};

/// Posts its owner's notifications on a notification center.
///
/// Threads: all operations may be called from any thread. The owner holds it; it does not hold the
/// owner.
class QVCORE_EXPORT QVEventSender : public QVPlatform::Object {
 public:
  /// Chooses the default center. Returns the receiver.
  std::shared_ptr<QVEventSender> init();

  /// Posts the notification unchanged, on the calling thread, and always returns true. A sender
  /// without a center posts nothing. What a receiver throws is stopped with a line on the console
  /// log, when all have received.
  bool send(const QVPlatform::Notification& notification);

  /// The owner, or null; not kept alive by the sender.
  IQVEventSenderDelegate* parent() const noexcept { return parent_; }
  void setParent(IQVEventSenderDelegate* parent) noexcept { parent_ = parent; }

  std::shared_ptr<QVPlatform::NotificationCenter> notificationCenter() const;
  void setNotificationCenter(std::shared_ptr<QVPlatform::NotificationCenter> center);

 private:
  std::atomic<IQVEventSenderDelegate*> parent_{nullptr};
  mutable QVPlatform::ForkMutex mutex_;
  std::shared_ptr<QVPlatform::NotificationCenter> notificationCenter_ QV_GUARDED_BY(mutex_);
  /// The same, if it is the default center: that is never destroyed, so that a post needs no
  /// reference to it. Written under the mutex.
  std::atomic<QVPlatform::NotificationCenter*> lastingCenter_{nullptr};
};
