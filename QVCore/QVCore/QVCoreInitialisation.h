#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/Object.h>

#include <memory>

/// Brings the core up.
///
///     const auto core = std::make_shared<QVCoreInitialisation>()->init();
///
/// Settings come before it (QVPlatform/Application.h, QVDebug), and so does the class name of a
/// consent module, "QVMobilePrivacy", in the ClassRegistry: a kit that was started without it
/// sends. A hit that is posted before it is lost.
///
/// The services live as long as the process; the object itself need not be kept. Where hits must
/// not be lost at the end of the process, QVNetworkManager::shutdownWithin() comes before it.
class QVCORE_EXPORT QVCoreInitialisation : public QVPlatform::Object {
 public:
  /// Makes the logger, the network manager and the core variables, in this order, unless they
  /// exist. Returns the receiver. On a thread other than the main one it waits until the main
  /// thread has begun to ask the web engine for the user agent; see QVCoreVariables::userAgent().
  std::shared_ptr<QVCoreInitialisation> init();

  /// Erases all that the kit keeps of the person and the installation, on disk and in memory: hits
  /// that wait or are saved, the variables, the installation's identifier, the configurations'
  /// offline copies, and whatever else is in the user defaults (QVUserDefaults) and in the private
  /// directory (QVLogger::privateQVDirectory()), also of other modules. A request under way comes
  /// to its end, and with running in background on, an empty list of hits may be saved then. What
  /// is posted afterwards is new; identifiers are made anew by the next start, or
  /// QVCoreVariables::reinit().
  ///
  /// May be called before the start, which it does not replace, and from any thread. False when
  /// something could not be removed from the disk, or memory ran out; then it may be called again.
  static bool eraseEverything();
};
