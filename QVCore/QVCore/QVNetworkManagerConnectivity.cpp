// How the network manager learns of the network and keeps waiting hits across restarts.

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVHTTPOperation.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>
#include <QVPlatform/Foundation/FileManager.h>
#include <QVPlatform/Foundation/KeyedArchiver.h>
#include <QVPlatform/Foundation/KeyedUnarchiver.h>

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

using QVPlatform::Array;
using QVPlatform::Data;
using QVPlatform::Dictionary;
using QVPlatform::FileManager;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::Value;

namespace {

/// Far more than a full queue of large hits takes; a larger file is not one of ours.
constexpr std::size_t kMaximumFileSize = 256U << 20;

/// Its address tells the manager's own observation of the hit queue from any other.
constexpr char OperationQueueCountChange = 0;

String offlineHitsPath() {
  return QVLogger::sharedInstance()->getPrivatePathToFile(kQVFileOfflineHits);
}

/// A file that is too large to be read would be found again at every start.
void removeIfEnormous(const String& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path.view(), error);
  if (!error && size > kMaximumFileSize) FileManager::removeItemAtPath(path);
}

std::vector<Value> hitsIn(const Data& archive) {
  QVPlatform::KeyedUnarchiver unarchiver(archive);
  return unarchiver.decodeObjectForKey(kQVFileOfflineHits).array().values();
}

void logCount(const char* format, std::size_t count) {
  if (count == 0) return;
  QVLogger::sharedInstance()->logMessageWithLevel(stringWithFormat(format, {count}), 1);
}

}  // namespace

void QVNetworkManager::registerReachabilityChanged() {
  NotificationCenter::defaultCenter()->addObserver(
      this, [this](const Notification& notification) { reachabilityChanged(notification); },
      kQVReachabilityChangedNotification);
}

void QVNetworkManager::reachabilityChanged(const Notification& notification) {
  const auto monitor = std::dynamic_pointer_cast<QVReachability>(notification.object());
  if (!monitor) return;
  QVCoreVariables::sharedInstance()->addDataWithValue(kQVPredefinedVariable_Connexion,
                                                      monitor->currentReachabilityString());
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
  const auto hits = operationQueue();
  if (!hits) return;
  const auto operations = hits->operations();
  std::vector<Value> waiting;
  waiting.reserve(operations.size());
  for (const auto& operation : operations) {
    const auto* hit = dynamic_cast<const QVHTTPOperation*>(operation.get());
    if (hit && !hit->isCancelled()) waiting.emplace_back(hit->userInfo());
  }
  if (!QVCoreVariables::sharedInstance()->enableSDKInBG()) {
    logCount("Saving %@ offline Hits", waiting.size());
  }
  QVPlatform::KeyedArchiver archiver;
  archiver.encodeObjectForKey(Array(std::move(waiting)), kQVFileOfflineHits);
  FileManager::writeAtomically(archiver.finishEncoding(), offlineHitsPath());
}

void QVNetworkManager::restoreStockedHit() {
  const auto hits = operationQueue();
  if (!hits || hits->operationCount() > 0) return;
  const String path = offlineHitsPath();
  const Data archive = FileManager::contentsAtPath(path, kMaximumFileSize);
  if (archive.isNull()) return removeIfEnormous(path);
  const std::vector<Value> stored = hitsIn(archive);
  logCount("Restoring %@ offline Hits", stored.size());
  for (const Value& hit : stored) queueRequestWithData(hit.dictionary());
  FileManager::removeItemAtPath(path);
}
