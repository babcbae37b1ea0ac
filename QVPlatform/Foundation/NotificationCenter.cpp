#include <QVPlatform/Foundation/NotificationCenter.h>

#include <QVPlatform/Dispatch/CallGate.h>

#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

/// One call of addObserver().
struct Registration {
  Registration(NotificationCenter::Callback itsCallback, const void* itsObserver,
               const Object* itsObject)
      : callback(std::move(itsCallback)), observer(itsObserver), object(itsObject) {}

  const NotificationCenter::Callback callback;
  const void* const observer;
  const Object* const object;
  CallGate gate;
};

/// A list is never changed once it can be seen: a post walks the one that it found, unlocked.
using Registrations = std::vector<std::shared_ptr<Registration>>;

}  // namespace

struct NotificationCenter::State {
  std::shared_ptr<const Registrations> find(const String& name) const {
    const std::shared_lock lock(mutex);
    const auto place = registrationsByName.find(name);
    return place == registrationsByName.end() ? nullptr : place->second;
  }

  /// Requires the mutex. Takes the observer's registrations out of the list for one name.
  void take(const void* observer, const String& name, Registrations& taken) {
    const auto place = registrationsByName.find(name);
    if (place == registrationsByName.end()) return;
    auto kept = std::make_shared<Registrations>();
    for (const auto& registration : *place->second) {
      (registration->observer == observer ? taken : *kept).push_back(registration);
    }
    if (kept->empty()) {
      registrationsByName.erase(place);
    } else {
      place->second = std::move(kept);
    }
  }

  mutable std::shared_mutex mutex;
  std::unordered_map<String, std::shared_ptr<const Registrations>> registrationsByName;
  std::unordered_map<const void*, std::vector<String>> namesByObserver;
};

const std::shared_ptr<NotificationCenter>& NotificationCenter::defaultCenter() {
  // Never destroyed: threads may post after main has returned.
  static const auto& center =
      *new std::shared_ptr<NotificationCenter>(std::make_shared<NotificationCenter>());
  return center;
}

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}

NotificationCenter::~NotificationCenter() = default;

void NotificationCenter::addObserver(const void* observer, Callback callback, const String& name,
                                     const Object* object) {
  if (name.isNull()) return;
  auto registration = std::make_shared<Registration>(std::move(callback), observer, object);
  const std::unique_lock lock(state_->mutex);
  auto& current = state_->registrationsByName[name];
  auto extended =
      current ? std::make_shared<Registrations>(*current) : std::make_shared<Registrations>();
  extended->push_back(std::move(registration));
  current = std::move(extended);
  state_->namesByObserver[observer].push_back(name);
}

void NotificationCenter::removeObserver(const void* observer) {
  Registrations removed;
  {
    const std::unique_lock lock(state_->mutex);
    const auto names = state_->namesByObserver.extract(observer);
    if (names.empty()) return;
    for (const String& name : names.mapped()) state_->take(observer, name, removed);
    for (const auto& registration : removed) registration->gate.beginClosing();
  }
  for (const auto& registration : removed) registration->gate.close();
}

void NotificationCenter::postNotification(const Notification& notification) {
  const auto registrations = state_->find(notification.name());
  if (!registrations) return;
  for (const auto& registration : *registrations) {
    if (registration->object && registration->object != notification.object().get()) continue;
    registration->gate.enter([&] { registration->callback(notification); });
  }
}

}  // namespace QVPlatform
