#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

namespace QVPlatform {

// Both print one line through the C library, so that it stands in order with what the host prints,
// and pass it on to the system at once. A null text prints as "(null)"; a zero byte ends a text.
// Nobody is held by an output that nobody reads: a line waits for 0.2 seconds, and the lines behind
// it not at all until the output takes one again; what cannot be printed is dropped, and its number
// told on the console log. No signal reaches the host when the output is closed or full. Callable
// from any thread; nothing fails.

/// Writes to the platform's console log, which is standard error, behind the name of the kit that
/// the build gives: for what must be told to the developer of the application outside of the kit's
/// own log.
QVPLATFORM_EXPORT void consoleLog(const String& message);

/// Writes to standard output, with nothing around the text.
QVPLATFORM_EXPORT void printLine(const String& text);

}  // namespace QVPlatform
