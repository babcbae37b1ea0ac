#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace QVPlatform {

// Both print one line through the C library, so that it stands in order with what the host prints,
// and pass it on to the system at once, also into a file or a pipe. A null text prints as "(null)";
// a zero byte ends a text. Nobody is held by an output that nobody reads: a line waits for 0.2
// seconds, and the lines behind it not at all until the output takes one again; what cannot be
// printed is dropped, and its number told on the console log. No signal reaches the host when the
// output is closed or full. A host that has a log of its own takes the lines with setLogSink().
// Callable from any thread; nothing fails.

/// Writes to the platform's console log, which is standard error, behind the name of the kit that
/// the build gives: for what must be told to the developer of the application outside of the kit's
/// own log.
QVPLATFORM_EXPORT void consoleLog(const String& message);

/// Writes to standard output, with nothing around the text. Only a sink learns the level.
QVPLATFORM_EXPORT void printLine(const String& text, std::optional<std::int32_t> level = {});

/// Where a line goes if no sink takes it.
enum class LogOutput { kConsole, kStandardOutput };

/// What a sink is called with.
struct LogLine {
  LogOutput output;
  /// The level at which the kit's log tells it; none on the console log, whose lines all mean that
  /// something is wrong, and where the caller gave none.
  std::optional<std::int32_t> level;
  /// Without the kit's name and a line feed. May be null.
  const String& text;
};

using LogSink = std::function<void(const LogLine&)>;

/// From now on all lines go to the sink, and to no output; an empty one brings the outputs back,
/// which is the default. False, and nothing has changed, when memory is short.
///
/// The sink is called on the thread that has the line to tell, by several threads at once, and
/// holds it until it returns. It must not call the kit, which may hold a lock at that moment, but
/// for values and texts. Lines that come of the sink's own doing go to the outputs, and so does
/// what it throws, as a line. A sink that is replaced may still be called by other threads for a
/// moment, so each that is set is kept for as long as the process runs: set one at the start.
QVPLATFORM_EXPORT bool setLogSink(LogSink sink);

}  // namespace QVPlatform
