#include <QVCore/QVCoreInitialisation.h>

#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>

std::shared_ptr<QVCoreInitialisation> QVCoreInitialisation::init() {
  // The manager logs what it restores, and it listens for the user agent that the variables post.
  QVLogger::sharedInstance();
  QVNetworkManager::sharedInstance();
  QVCoreVariables::sharedInstance();
  return std::static_pointer_cast<QVCoreInitialisation>(self());
}
