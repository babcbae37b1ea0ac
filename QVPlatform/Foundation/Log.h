#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

/// Writes one line to the platform's console log, which is standard error: for what the kit must
/// tell the developer of the application outside of its own log. Callable from any thread; never
/// fails.
QVPLATFORM_EXPORT void consoleLog(const String& message);

}  // namespace QVPlatform
