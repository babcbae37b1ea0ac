// How the network manager learns of the network and keeps waiting hits across restarts.

#include <QVCore/Internal/QVOfflineHits.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVNetworkManager.h>
#include <QVPlatform/Foundation/CallOut.h>

#include <memory>
#include <vector>

using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;
using QVPlatform::Value;

namespace {

/// Its address tells the manager's own observation of the hit queue from any other.
constexpr char OperationQueueCountChange = 0;

}  // namespace

void QVNetworkManager::registerReachabilityChanged() { registerReachability(); }

bool QVNetworkManager::registerReachability() {
  return NotificationCenter::defaultCenter()->addObserver(
      this, [this](const Notification& notification) { reachabilityChanged(notification); },
      kQVReachabilityChangedNotification);
}

void QVNetworkManager::reachabilityChanged(const Notification& notification) {
  const auto monitor = std::dynamic_pointer_cast<QVReachability>(notification.object());
  if (!monitor) return;
  QVPlatform::callOut([&] {
    QVCoreVariables::sharedInstance()->addDataWithValue(kQVPredefinedVariable_Connexion,
                                                        monitor->currentReachabilityString());
  });
  switch (monitor->currentReachabilityStatus()) {
    case QVNetworkStatusNotReachable:
      return sentReachabilityChanged(kQVNotification_InternetDown);
    case QVNetworkStatusViaWWAN:
    case QVNetworkStatusViaWiFi:
      return sentReachabilityChanged(kQVNotification_InternetUp);
  }
}

void QVNetworkManager::sentReachabilityChanged(const String& name) {
  const auto sender = senderDelegate();
  if (!sender) return;
  sender->send(Notification(name, self()));
  sender->send(
      Notification(kQVNotification_InternetChanged, self(), {{kQVUserInfo_DataKey, name}}));
}

bool QVNetworkManager::isInternetReachable() const {
  const auto monitor = reachability();
  return monitor && monitor->isReachable();
}

void QVNetworkManager::enableRunningInBackground() {
  const auto hits = operationQueue();
  if (!hits) return;
  const auto manager = std::static_pointer_cast<QVNetworkManager>(self());
  hits->addObserverForOperationCount(manager, &OperationQueueCountChange);
}

void QVNetworkManager::observeValueForKeyPathOfObjectChangeContext(
    const String& keyPath, const std::shared_ptr<QVPlatform::Object>& object, const Value&,
    const void* context) {
  if (context == &OperationQueueCountChange && object == operationQueue() &&
      keyPath == String("operationCount")) {
    saveAllHits();
  }
}

void QVNetworkManager::saveAllHits() {
  if (operationQueue()) QVOfflineHits::save([this] { return operations(); });
}

void QVNetworkManager::restoreStockedHit() {
  const auto hits = operationQueue();
  if (!hits || hits->operationCount() > 0) return;
  // One for which memory is short stays stored rather than be answered by an error.
  QVOfflineHits::restore([this](Dictionary hit) { queueOrRefuse(hit); },
                         [this] { return operations(); });
}

std::vector<std::shared_ptr<QVPlatform::Operation>> QVNetworkManager::operations() const {
  const auto hits = operationQueue();
  return hits ? hits->operations() : std::vector<std::shared_ptr<QVPlatform::Operation>>();
}
