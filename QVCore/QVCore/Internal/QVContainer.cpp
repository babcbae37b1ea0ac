#include <QVCore/Internal/QVContainer.h>

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVLogger.h>
#include <QVPlatform/Files/DirectoryClaim.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Log.h>

using QVPlatform::String;

void QVContainer::claim() {
  QVPlatform::callOut([] {
    QVLogger::sharedInstance()->getPrivatePathToFile(kQVFileOfflineHits);  // makes the directory
    const String directory = QVLogger::privateQVDirectory();
    if (QVPlatform::claimDirectoryAtPath(directory)) return;
    QVPlatform::consoleLog(QVPlatform::stringWithFormat(
        "another process has its hits in %@: what one saves, the other replaces or sends",
        {directory}));
  });
}
