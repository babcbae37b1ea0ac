#pragma once

#include <QVPlatform/Export.h>

namespace QVPlatform {

/// Tells the console log of the exception that is being handled. Throws nothing, but goes on with
/// the end of a thread that the host cancels, which cannot be stopped.
QVPLATFORM_EXPORT void logStoppedException();

/// Calls `body`, which may be the host's code or run out of memory, and stops what it throws with a
/// line on the console log: where the library was called by a thread of its own, an exception would
/// end the host, and where the host called it, the host does not expect one. Answers whether `body`
/// came to its end. Callable from any thread.
template <class Body>
bool callOut(Body&& body) {
  try {
    body();
    return true;
  } catch (...) {
    logStoppedException();
    return false;
  }
}

/// Calls `attempt`, which answers whether it succeeded, as above, and once more if it did not: for
/// what must not be left undone because memory was short for a moment. Answers whether it was done.
template <class Attempt>
bool tryTwice(Attempt&& attempt) {
  bool isDone = false;
  for (int tries = 2; tries > 0 && !isDone; --tries) callOut([&] { isDone = attempt(); });
  return isDone;
}

}  // namespace QVPlatform
