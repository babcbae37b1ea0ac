#pragma once

#include <QVPlatform/Dispatch/Notification.h>
#include <QVPlatform/Export.h>

#include <functional>
#include <memory>

namespace QVPlatform {

/// Delivers notifications, by exact name, to whoever registered for that name.
///
/// Threads: every operation may be called from any thread and from within a callback. No lock is
/// held while a callback runs. Delivery is synchronous, on the posting thread; two threads that
/// post may run one callback at the same time.
class QVPLATFORM_EXPORT NotificationCenter {
 public:
  using Callback = std::function<void(const Notification&)>;

  /// The one center of the process; never destroyed.
  static const std::shared_ptr<NotificationCenter>& defaultCenter();

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  /// Registers a callback for one name, from `object` only or, when that is null, from any object.
  /// `observer` is only a key for removeObserver(). Registering twice delivers twice. A null name
  /// registers nothing. False, with a line on the console log when memory is short, if nothing was
  /// registered.
  bool addObserver(const void* observer, Callback callback, const String& name,
                   const Object* object = nullptr);

  /// Drops every registration of the observer. When this returns, none of its callbacks will start
  /// any more and none is running on another thread: it waits for those under way (not for one that
  /// the caller itself is in). So an observer that calls this first may be destroyed. Two callbacks
  /// on two threads that each remove the other's observer wait for each other: do not. Nor does the
  /// child of a fork() wait for callbacks that were under way before it.
  void removeObserver(const void* observer);
  /// As removeObserver(), but returns at once: a callback that is under way on another thread goes
  /// on. So the caller may hold a lock that this callback waits for, but what it uses must not go:
  /// removeObserver() does not wait for it afterwards either.
  void removeObserverWithoutWaiting(const void* observer);

  /// Calls every callback registered for the notification's name, in the order of registration,
  /// and returns. Registrations that are added meanwhile wait for the next notification, and those
  /// removed meanwhile are passed over. What a callback throws reaches the poster when all have
  /// been called, and of several exceptions the first. A null name reaches nobody.
  void postNotification(const Notification& notification);

 private:
  struct State;

  const std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
