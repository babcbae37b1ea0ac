#pragma once

#include <QVPlatform/Dispatch/OperationQueue.h>
#include <QVPlatform/Foundation/String.h>

#include <cstdint>
#include <memory>

/// What the network manager does to the operations that wait in its hit queue.
///
/// A null queue holds none. Threads: all operations may be called from any thread; what another
/// thread adds meanwhile is left out.
class QVWaitingHits {
 public:
  QVWaitingHits() = delete;

  using Queue = std::shared_ptr<QVPlatform::OperationQueue>;

  /// Appends the text to the body of each, in order. When memory is short, those for which there is
  /// none are left as they were, with a line on the console log.
  static void append(const Queue& queue, const QVPlatform::String& text);
  /// Cancels the first one that is not cancelled and older than the limit; false if there is none.
  static bool cancelFirstOlderThan(const Queue& queue, double seconds);
  /// Cancels the one at that position; past the end, the console log says that there is none.
  static void cancelAtPosition(const Queue& queue, std::uint32_t position);
};
