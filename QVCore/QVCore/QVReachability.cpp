#include <QVCore/QVReachability.h>

#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Log.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>

using QVPlatform::callOut;
using QVPlatform::NetworkReachability;
using QVPlatform::SerialQueue;
using QVPlatform::SocketAddress;
using QVPlatform::String;

namespace {

using Flags = QVReachability::Flags;

constexpr Flags kTransient = QVPlatform::kSCNetworkReachabilityFlagsTransientConnection;
constexpr Flags kReachable = QVPlatform::kSCNetworkReachabilityFlagsReachable;
constexpr Flags kRequired = QVPlatform::kSCNetworkReachabilityFlagsConnectionRequired;
constexpr Flags kOnTraffic = QVPlatform::kSCNetworkReachabilityFlagsConnectionOnTraffic;
constexpr Flags kIntervention = QVPlatform::kSCNetworkReachabilityFlagsInterventionRequired;
constexpr Flags kOnDemand = QVPlatform::kSCNetworkReachabilityFlagsConnectionOnDemand;
constexpr Flags kIsWWAN = QVPlatform::kSCNetworkReachabilityFlagsIsWWAN;

constexpr const char* kQueueLabel = "org.qvcore.reachability";

bool hasAll(Flags flags, Flags wanted) { return (flags & wanted) == wanted; }

std::shared_ptr<QVReachability> monitorOf(std::shared_ptr<NetworkReachability> target) {
  if (!target) return nullptr;
  return std::make_shared<QVReachability>()->initWithReachabilityRef(std::move(target));
}

}  // namespace

std::shared_ptr<QVReachability> QVReachability::reachabilityWithHostName(const String& hostName) {
  return reachabilityWithHostname(hostName);
}

std::shared_ptr<QVReachability> QVReachability::reachabilityWithHostname(const String& hostname) {
  return monitorOf(NetworkReachability::createWithName(hostname));
}

std::shared_ptr<QVReachability> QVReachability::reachabilityWithAddress(
    const SocketAddress& address) {
  return monitorOf(NetworkReachability::createWithAddress(address));
}

std::shared_ptr<QVReachability> QVReachability::reachabilityForInternetConnection() {
  return reachabilityWithAddress({.address = {0, 0, 0, 0}});
}

std::shared_ptr<QVReachability> QVReachability::reachabilityForLocalWiFi() {
  return reachabilityWithAddress({.address = {169, 254, 0, 0}});
}

QVReachability::QVReachability() = default;

std::shared_ptr<QVReachability> QVReachability::initWithReachabilityRef(
    std::shared_ptr<NetworkReachability> reachabilityRef) {
  reachableOnWWAN_ = true;
  reachabilityRef_.set(std::move(reachabilityRef));
  return std::static_pointer_cast<QVReachability>(self());
}

QVReachability::~QVReachability() { stopNotifier(); }

bool QVReachability::startNotifier() {
  bool isStarted = false;
  const auto watch = [&] { isStarted = watchTarget(); };
  if (!callOut(watch) && !callOut(watch)) stopNotifier();  // NOLINT(misc-redundant-expression)
  return isStarted;
}

bool QVReachability::watchTarget() {
  constexpr const char* kSetCallback = "SCNetworkReachabilitySetCallback";
  const std::weak_ptr<Object> weakMonitor = weak_from_this();
  const auto monitor = weakMonitor.lock();
  const auto target = reachabilityRef();
  // Without a target the platform's operation has an argument that is not valid; nor can a monitor
  // hold itself that no std::shared_ptr holds.
  if (!monitor || !target) {
    return failToStart(kSetCallback, String(std::generic_category().message(EINVAL)));
  }
  // Holds itself, on purpose: whoever started it need not keep it for changes to be told.
  reachabilityObject_.set(std::static_pointer_cast<QVReachability>(monitor));
  const auto queue = std::make_shared<SerialQueue>(String(kQueueLabel));
  reachabilitySerialQueue_.set(queue);
  // The monitor holds its target, so the target must not hold the monitor, except during a call.
  const auto reachabilityCallback = [weakMonitor](Flags flags) {
    const auto info = std::static_pointer_cast<QVReachability>(weakMonitor.lock());
    if (info) info->reachabilityChanged(flags);
  };
  if (!target->setCallback(reachabilityCallback)) {
    return failToStart(kSetCallback, NetworkReachability::lastErrorString());
  }
  if (!target->setDispatchQueue(queue)) {
    return failToStart("SCNetworkReachabilitySetDispatchQueue",
                       NetworkReachability::lastErrorString());
  }
  return true;
}

bool QVReachability::failToStart(const char* operation, const String& reason) {
  QVPlatform::consoleLog(String(operation) + "() failed: " + reason);
  stopNotifier();
  return false;
}

void QVReachability::stopNotifier() {
  if (const auto target = reachabilityRef()) {
    target->setCallback(nullptr);
    target->setDispatchQueue(nullptr);
  }
  reachabilitySerialQueue_.set(nullptr);
  reachabilityObject_.set(nullptr);  // last: this may be the end of the monitor
}

bool QVReachability::isReachableWithFlags(Flags flags) const {
  if (!hasAll(flags, kReachable)) return false;
  if (hasAll(flags, kRequired | kTransient)) return false;
  return reachableOnWWAN() || !hasAll(flags, kIsWWAN);
}

bool QVReachability::isReachable() const { return isReachableWithFlags(reachabilityFlags()); }

bool QVReachability::isReachableViaWWAN() const {
  return hasAll(reachabilityFlags(), kReachable | kIsWWAN);
}

bool QVReachability::isReachableViaWiFi() const {
  return (reachabilityFlags() & (kReachable | kIsWWAN)) == kReachable;
}

bool QVReachability::isConnectionRequired() const { return connectionRequired(); }

bool QVReachability::connectionRequired() const { return hasAll(reachabilityFlags(), kRequired); }

bool QVReachability::isConnectionOnDemand() const {
  const Flags flags = reachabilityFlags();
  return hasAll(flags, kRequired) && (flags & (kOnTraffic | kOnDemand)) != 0;
}

bool QVReachability::isInterventionRequired() const {
  return hasAll(reachabilityFlags(), kRequired | kIntervention);
}

/// From one look at the flags, so that a change halfway does not mix two answers.
QVNetworkStatus QVReachability::currentReachabilityStatus() const {
  const Flags flags = reachabilityFlags();
  if (!isReachableWithFlags(flags)) return QVNetworkStatusNotReachable;
  return hasAll(flags, kIsWWAN) ? QVNetworkStatusViaWWAN : QVNetworkStatusViaWiFi;
}

QVReachability::Flags QVReachability::reachabilityFlags() const {
  const auto target = reachabilityRef();
  Flags flags = 0;
  return target && target->getFlags(&flags) ? flags : 0;
}

/// The comparison with the property, not with the cellular status, is deliberate: modules rely on
/// the texts that it makes.
String QVReachability::currentReachabilityString() const {
  const QVNetworkStatus status = currentReachabilityStatus();
  if (status == static_cast<int>(reachableOnWWAN())) return String("Cellular");
  if (status == QVNetworkStatusViaWiFi) return String("WiFi");
  return String("Connection Type Unavailable");
}

String QVReachability::currentReachabilityFlags() const {
  struct Letter {
    Flags flag;
    char letter;
  };
  static constexpr std::array kLetters{
      Letter{kIsWWAN, 'W'},
      Letter{kReachable, 'R'},
      Letter{kRequired, 'c'},
      Letter{kTransient, 't'},
      Letter{kIntervention, 'i'},
      Letter{kOnTraffic, 'C'},
      Letter{kOnDemand, 'D'},
      Letter{QVPlatform::kSCNetworkReachabilityFlagsIsLocalAddress, 'l'},
      Letter{QVPlatform::kSCNetworkReachabilityFlagsIsDirect, 'd'},
  };
  const Flags flags = reachabilityFlags();
  std::string text;
  for (const auto& [flag, letter] : kLetters) text += (flags & flag) != 0 ? letter : '-';
  return String(text.insert(2, 1, ' '));
}

void QVReachability::reachabilityChanged(Flags flags) {
  const auto monitor = std::static_pointer_cast<QVReachability>(self());
  callOut([&] {
    const Block block = isReachableWithFlags(flags) ? reachableBlock() : unreachableBlock();
    if (block) block(monitor);
  });
  const auto notify = [monitor] {
    QVPlatform::NotificationCenter::defaultCenter()->postNotification(
        QVPlatform::Notification(kQVReachabilityChangedNotification, monitor));
  };
  // The queues of the kit stay held until it hears of the network, so it is tried once more.
  QVPlatform::tryTwice([&] { return QVPlatform::MainQueue::mainQueue().async(notify); });
}

String QVReachability::description() const {
  const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this));
  char text[16];
  std::snprintf(text, sizeof text, ": %#x>", address);
  return String("<") + className() + String(text);
}
