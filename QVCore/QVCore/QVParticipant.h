#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVEventListener.h>
#include <QVCore/QVEventSender.h>
#include <QVPlatform/Foundation/Property.h>

#include <memory>
#include <span>

/// The sender and the listener of one of the core's classes, which derives from this to hold them.
///
/// Both point back to their owner without holding it, and modules may hold them for longer than the
/// owner wants them. So they lose their parent when begin() replaces them, and with end(), which
/// the owner's destructor calls while all of the owner is still there.
///
/// Threads: all operations may be called from any thread. begin() and end() return when no other
/// thread is in the owner's onNotificationReceived() by way of the earlier listener.
class QVCORE_EXPORT QVParticipant {
 public:
  /// Null in a bare instance, and when a setter has made it so. The setters touch no parent, as
  /// whoever calls them may want another one.
  std::shared_ptr<QVEventSender> senderDelegate() const;
  void setSenderDelegate(std::shared_ptr<QVEventSender> sender);
  std::shared_ptr<QVEventListener> listenerDelegate() const;
  void setListenerDelegate(std::shared_ptr<QVEventListener> listener);

 protected:
  using Center = std::shared_ptr<QVPlatform::NotificationCenter>;

  QVParticipant() = default;
  ~QVParticipant() = default;

  /// A listener without a parent that hears all the names already, so that an owner makes it before
  /// it changes anything. Throws std::bad_alloc.
  static std::shared_ptr<QVEventListener> makeListener(
      std::span<const QVPlatform::String* const> names);

  /// Puts a sender into the place of the earlier one, and makes the owner its parent.
  void begin(IQVEventSenderDelegate* owner, std::shared_ptr<QVEventSender> sender);
  /// The same with a listener. One that is new, whose first parent this is, takes no memory.
  void begin(IQVEventListenerDelegate* owner, std::shared_ptr<QVEventListener> listener);
  /// Gives up both, the sender first.
  void end();

  void moveSender(const Center& center);
  void moveListener(const Center& center);

 private:
  QVPlatform::Property<std::shared_ptr<QVEventSender>> sender_;
  QVPlatform::Property<std::shared_ptr<QVEventListener>> listener_;
};
