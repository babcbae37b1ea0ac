#pragma once

#include <functional>

namespace QVPlatform {

/// Starts a thread of the library's own that nobody joins; `name` (15 characters at most) shows in
/// debuggers and in top. All signals are blocked in it, so that the host's handlers keep running on
/// the host's threads, and writing to a closed connection raises no SIGPIPE.
/// `body` runs as in callOut(). False when the system has no thread to give.
bool startThread(const char* name, std::function<void()> body);

/// Runs `body`, which may be the host's code, and stops what it throws with a line on the console
/// log: an exception that left a thread of the library would end the host.
void callOut(const std::function<void()>& body);

}  // namespace QVPlatform
