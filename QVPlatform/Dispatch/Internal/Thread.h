#pragma once

#include <QVPlatform/Foundation/CallOut.h>

#include <functional>

namespace QVPlatform {

/// As startThread(), but throws std::bad_alloc when memory is short.
bool startDetachedThread(const char* name, std::function<void()> body);

/// Starts a thread of the library's own that nobody joins; `name` (15 characters at most) shows in
/// debuggers and in top. All signals are blocked in it, so that the host's handlers keep running on
/// the host's threads, and writing to a closed connection raises no SIGPIPE.
/// `body` runs as in callOut(). False, with a line on the console log, when the system has no
/// thread to give or no memory for one.
template <class Body>
bool startThread(const char* name, const Body& body) {
  return tryTwice([&] { return startDetachedThread(name, body); });
}

}  // namespace QVPlatform
