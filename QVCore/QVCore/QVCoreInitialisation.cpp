#include <QVCore/QVCoreInitialisation.h>

#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Files/UserDefaults.h>
#include <QVPlatform/Foundation/CallOut.h>

using QVPlatform::callOut;
using QVPlatform::FileManager;
using QVPlatform::UserDefaults;

namespace {

void cancelAllHits(QVNetworkManager& manager) {
  for (const auto& queue : {manager.operationQueue(), manager.consentQueue()}) {
    if (queue) queue->cancelAllOperations();
  }
  manager.saveAllHits();  // so that an older save, which is still being written, is dropped
}

}  // namespace

std::shared_ptr<QVCoreInitialisation> QVCoreInitialisation::init() {
  // The manager logs what it restores, and it listens for the user agent that the variables post.
  QVLogger::sharedInstance();
  QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance();
  return std::static_pointer_cast<QVCoreInitialisation>(self());
}

bool QVCoreInitialisation::eraseEverything() {
  // What memory is missing for keeps nothing else from being erased.
  const bool isQueueErased = callOut([] {
    if (QVNetworkManager::isInitialised()) cancelAllHits(*QVNetworkManager::sharedInstance());
  });
  const bool areVariablesErased = callOut([] {
    if (QVCoreVariables::isInitialised()) QVCoreVariables::sharedInstance()->clearData();
  });
  bool areFilesErased = false;
  callOut([&] {
    areFilesErased = FileManager::removeContentsOfDirectoryAtPath(QVLogger::privateQVDirectory());
  });
  const bool areDefaultsErased = UserDefaults::standardUserDefaults().removeAllObjects();
  return isQueueErased && areVariablesErased && areFilesErased && areDefaultsErased;
}
