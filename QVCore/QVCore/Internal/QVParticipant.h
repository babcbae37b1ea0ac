#pragma once

#include <QVCore/QVEventListener.h>
#include <QVCore/QVEventSender.h>
#include <QVPlatform/Foundation/Property.h>

#include <memory>
#include <new>
#include <span>
#include <utility>

/// The sender and the listener of one owner, which holds them by this.
///
/// Both point back to the owner without holding it, and modules may hold them for longer than the
/// owner wants them. So they lose their parent when begin() replaces them, and with end(), which
/// the owner's destructor calls while all of the owner is still there. Both are null before the
/// first begin(), and an owner that only posts has no listener at all.
///
/// Threads: all operations may be called from any thread. begin() and end() return when no other
/// thread is in the owner's onNotificationReceived() by way of the earlier listener.
class QVParticipant {
 public:
  using Center = std::shared_ptr<QVPlatform::NotificationCenter>;

  /// A listener without a parent that hears all the names already, so that an owner makes it before
  /// it changes anything. Throws std::bad_alloc.
  static std::shared_ptr<QVEventListener> makeListener(
      std::span<const QVPlatform::String* const> names) {
    auto listener = std::make_shared<QVEventListener>()->init();
    for (const auto* name : names) {
      if (!listener->listen(*name)) throw std::bad_alloc();
    }
    return listener;
  }

  /// Puts a sender into the place of the earlier one, and makes the owner its parent.
  void begin(IQVEventSenderDelegate* owner, std::shared_ptr<QVEventSender> sender) {
    replace(sender_, owner, std::move(sender));
  }
  /// The same with a listener. One that is new, whose first parent this is, takes no memory.
  void begin(IQVEventListenerDelegate* owner, std::shared_ptr<QVEventListener> listener) {
    replace(listener_, owner, std::move(listener));
  }
  /// Gives up both, the sender first.
  void end() {
    replace<QVEventSender, IQVEventSenderDelegate>(sender_, nullptr, nullptr);
    replace<QVEventListener, IQVEventListenerDelegate>(listener_, nullptr, nullptr);
  }

  std::shared_ptr<QVEventSender> sender() const { return sender_.get(); }
  std::shared_ptr<QVEventListener> listener() const { return listener_.get(); }
  /// For the owners' setters: touch no parent, as whoever calls these may want another one.
  void setSender(std::shared_ptr<QVEventSender> sender) { sender_.set(std::move(sender)); }
  void setListener(std::shared_ptr<QVEventListener> listener) {
    listener_.set(std::move(listener));
  }

  void moveSender(const Center& center) {
    if (const auto sender = sender_.get()) sender->setNotificationCenter(center);
  }
  void moveListener(const Center& center) {
    if (const auto listener = listener_.get()) listener->setNotificationCenter(center);
  }

 private:
  template <class Wrapper>
  using Place = QVPlatform::Property<std::shared_ptr<Wrapper>>;

  /// The earlier one goes first, or the owner would receive what comes in between twice.
  template <class Wrapper, class Owner>
  static void replace(Place<Wrapper>& place, Owner* owner, std::shared_ptr<Wrapper> wrapper) {
    if (const auto earlier = place.exchange(wrapper)) earlier->setParent(nullptr);
    if (wrapper) wrapper->setParent(owner);
  }

  Place<QVEventSender> sender_;
  Place<QVEventListener> listener_;
};
