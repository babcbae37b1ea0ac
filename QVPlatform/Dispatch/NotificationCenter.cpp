#include <QVPlatform/Dispatch/NotificationCenter.h>

#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Dispatch/Internal/ReadMostly.h>
#include <QVPlatform/Dispatch/Internal/StripedPointer.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <cxxabi.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
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
using RegistrationList = StripedPointer<const Registrations>;

/// The registrations that are still in force, and one more, if any.
RegistrationList listFrom(const RegistrationList& earlier,
                          const std::shared_ptr<Registration>& added) {
  const Registrations none;
  const Registrations& before = earlier ? *earlier.get() : none;
  auto list = std::make_shared<Registrations>();
  list->reserve(before.size() + 1);
  std::copy_if(before.begin(), before.end(), std::back_inserter(*list),
               [](const auto& registration) { return !registration->gate.isClosed(); });
  if (added) list->push_back(added);
  return list->empty() ? RegistrationList() : RegistrationList(std::move(list));
}

using RegistrationsByObserver = std::unordered_map<const void*, Registrations>;

struct Table {
  void renew(const String& name) {
    const auto place = listsByName.find(name);
    if (place == listsByName.end()) return;
    place->second = listFrom(place->second, nullptr);
    if (!place->second) listsByName.erase(place);
  }

  std::unordered_map<String, RegistrationList> listsByName;
  RegistrationsByObserver registrationsByObserver;
};

}  // namespace

struct NotificationCenter::State {
  std::shared_ptr<const Registrations> find(const String& name) const {
    std::shared_ptr<const Registrations> found;
    table.read([&](const Table& read) {
      const auto place = read.listsByName.find(name);
      if (place != read.listsByName.end()) found = place->second.get();
    });
    return found;
  }

  /// Takes the observer's registrations out of the lists. Without memory for a new list they stay
  /// in the old one, closed, until it is next made anew.
  RegistrationsByObserver::node_type take(const void* observer) {
    RegistrationsByObserver::node_type taken;
    table.change([&](Table& changed) {
      taken = changed.registrationsByObserver.extract(observer);
      if (taken.empty()) return;
      for (const auto& registration : taken.mapped()) registration->gate.beginClosing();
      callOut([&] {
        for (const auto& registration : taken.mapped()) changed.renew(registration->name);
      });
    });
    return taken;
  }

  ReadMostly<Table> table;
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
    state_->table.change([&](Table& table) {
      auto& list = table.listsByName[name];
      auto extended = listFrom(list, added);
      table.registrationsByObserver[observer].push_back(added);
      replaced = std::exchange(list, std::move(extended));
    });
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
