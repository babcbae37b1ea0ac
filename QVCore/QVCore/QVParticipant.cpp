#include <QVCore/QVParticipant.h>

#include <new>
#include <utility>

using QVPlatform::Property;
using QVPlatform::String;

namespace {

/// The earlier one goes first, or the owner would receive what comes in between twice.
template <class Wrapper, class Owner>
void replace(Property<std::shared_ptr<Wrapper>>& place, Owner* owner,
             std::shared_ptr<Wrapper> wrapper) {
  if (const auto earlier = place.exchange(wrapper)) earlier->setParent(nullptr);
  if (wrapper) wrapper->setParent(owner);
}

template <class Wrapper>
void move(const std::shared_ptr<Wrapper>& wrapper,
          const std::shared_ptr<QVPlatform::NotificationCenter>& center) {
  if (wrapper) wrapper->setNotificationCenter(center);
}

}  // namespace

std::shared_ptr<QVEventSender> QVParticipant::senderDelegate() const { return sender_.get(); }

void QVParticipant::setSenderDelegate(std::shared_ptr<QVEventSender> sender) {
  sender_.set(std::move(sender));
}

std::shared_ptr<QVEventListener> QVParticipant::listenerDelegate() const { return listener_.get(); }

void QVParticipant::setListenerDelegate(std::shared_ptr<QVEventListener> listener) {
  listener_.set(std::move(listener));
}

std::shared_ptr<QVEventListener> QVParticipant::makeListener(std::span<const String* const> names) {
  auto listener = std::make_shared<QVEventListener>()->init();
  for (const auto* name : names) {
    if (!listener->listen(*name)) throw std::bad_alloc();
  }
  return listener;
}

void QVParticipant::begin(IQVEventSenderDelegate* owner, std::shared_ptr<QVEventSender> sender) {
  replace(sender_, owner, std::move(sender));
}

void QVParticipant::begin(IQVEventListenerDelegate* owner,
                          std::shared_ptr<QVEventListener> listener) {
  replace(listener_, owner, std::move(listener));
}

void QVParticipant::end() {
  replace<QVEventSender, IQVEventSenderDelegate>(sender_, nullptr, nullptr);
  replace<QVEventListener, IQVEventListenerDelegate>(listener_, nullptr, nullptr);
}

void QVParticipant::moveSender(const Center& center) { move(senderDelegate(), center); }

void QVParticipant::moveListener(const Center& center) { move(listenerDelegate(), center); }
