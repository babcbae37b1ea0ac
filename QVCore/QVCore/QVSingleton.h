#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/Object.h>

/// Marks the shared services of the core: QVLogger, QVNetworkManager, QVCoreVariables and
/// QVConfigurationFileFactory.
///
/// Each has a sharedInstance() that is made and initialised once per process, on the first call
/// from any thread, and never destroyed. init() runs the class's initialisation only once per
/// process; reinit() runs it again, on the same object. An instance that is made beside the shared
/// one stays bare: init() does nothing to it.
class QVCORE_EXPORT QVSingleton : public QVPlatform::Object {};
