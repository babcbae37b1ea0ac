#pragma once

#include <QVPlatform/Networking/Internal/ProxyEnvironment.h>

namespace QVPlatform {

/// Sets up what transfers are made with, the first time that it is called in the process; any
/// thread may be the one. Answers with the proxies, which stay as they were found then.
const ProxyEnvironment* initializeTransferLibraries();

}  // namespace QVPlatform
