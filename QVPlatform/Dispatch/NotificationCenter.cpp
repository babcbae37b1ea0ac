#include <QVPlatform/Dispatch/NotificationCenter.h>

#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <cxxabi.h>

#include <exception>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

/// One call of addObserver(). Its gate is closed for ever when the observer is removed.
struct Registration {
  Registration(NotificationCenter::Callback itsCallback, const String& itsName,
               const Object* itsObject)
      : callback(std::move(itsCallback)), name(itsName), object(itsObject) {}

  const NotificationCenter::Callback callback;
  const String name;
  const Object* const object;
  CallGate gate;
};

/// A list is never changed once it can be seen: a post walks the one that it found, unlocked.
using Registrations = std::vector<std::shared_ptr<Registration>>;
using RegistrationList = std::shared_ptr<const Registrations>;

/// The registrations that are still in force, and one more, if any.
RegistrationList listFrom(const RegistrationList& earlier,
                          const std::shared_ptr<Registration>& added) {
  auto list = std::make_shared<Registrations>();
  list->reserve((earlier ? earlier->size() : 0) + 1);
  for (std::size_t i = 0; earlier && i < earlier->size(); ++i) {
    if (!(*earlier)[i]->gate.isClosed()) list->push_back((*earlier)[i]);
  }
  if (added) list->push_back(added);
  return list->empty() ? nullptr : list;
}

}  // namespace

struct NotificationCenter::State {
  using RegistrationsByObserver = std::unordered_map<const void*, Registrations>;

  RegistrationList find(const String& name) const {
    const std::lock_guard lock(mutex);
    const auto place = listsByName.find(name);
    return place == listsByName.end() ? nullptr : place->second;
  }

  /// Takes the observer's registrations out of the lists. Without memory for a new list they stay
  /// in the old one, closed, until it is next made anew.
  RegistrationsByObserver::node_type take(const void* observer) {
    const std::lock_guard lock(mutex);
    auto taken = registrationsByObserver.extract(observer);
    if (taken.empty()) return taken;
    for (const auto& registration : taken.mapped()) registration->gate.beginClosing();
    callOut([&] {
      for (const auto& registration : taken.mapped()) renew(registration->name);
    });
    return taken;
  }

  /// Requires the mutex.
  void renew(const String& name) {
    const auto place = listsByName.find(name);
    if (place == listsByName.end()) return;
    place->second = listFrom(place->second, nullptr);
    if (!place->second) listsByName.erase(place);
  }

  mutable ForkMutex mutex;
  std::unordered_map<String, RegistrationList> listsByName;
  RegistrationsByObserver registrationsByObserver;
};

const std::shared_ptr<NotificationCenter>& NotificationCenter::defaultCenter() {
  struct Default {
    const std::shared_ptr<NotificationCenter> center = std::make_shared<NotificationCenter>();
  };
  return Lasting<Default>::object().center;
}

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}

NotificationCenter::~NotificationCenter() = default;

bool NotificationCenter::addObserver(const void* observer, Callback callback, const String& name,
                                     const Object* object) {
  if (name.isNull()) return false;
  RegistrationList replaced;  // destroyed after the lock, as callbacks may go with it
  return callOut([&] {
    const auto added = std::make_shared<Registration>(std::move(callback), name, object);
    const std::lock_guard lock(state_->mutex);
    auto& list = state_->listsByName[name];
    replaced = list;
    auto extended = listFrom(list, added);
    state_->registrationsByObserver[observer].push_back(added);
    list = std::move(extended);
  });
}

void NotificationCenter::removeObserver(const void* observer) {
  const auto taken = state_->take(observer);
  if (taken.empty()) return;
  for (const auto& registration : taken.mapped()) registration->gate.close();
}

void NotificationCenter::removeObserverWithoutWaiting(const void* observer) {
  state_->take(observer);
}

void NotificationCenter::postNotification(const Notification& notification) {
  const auto registrations = state_->find(notification.name());
  if (!registrations) return;
  std::exception_ptr thrown;
  for (const auto& registration : *registrations) {
    if (registration->object && registration->object != notification.object().get()) continue;
    try {
      registration->gate.enter([&] { registration->callback(notification); });
    } catch (const abi::__forced_unwind&) {
      throw;  // the host cancels this thread, which cannot be stopped
    } catch (...) {
      if (!thrown) thrown = std::current_exception();
    }
  }
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace QVPlatform
