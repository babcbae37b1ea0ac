#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/String.h>

#include <functional>
#include <memory>

namespace QVPlatform {

/// Runs blocks one after the other, in the order in which they were handed in, on a thread of its
/// own.
///
/// Threads: async() may be called from any thread, blocks included. The thread starts with the
/// first block, or with a later one if the system has no thread to give yet. Lifetime: the
/// destructor returns at once; blocks that wait still run, then the thread ends. In the child of a
/// fork() the queue is empty, and its thread starts with the next block.
class QVPLATFORM_EXPORT SerialQueue {
 public:
  /// The label names the queue in debuggers.
  explicit SerialQueue(String label);
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const String& label() const noexcept { return label_; }

  /// Hands in a block and returns at once. What the block throws is reported on the console log.
  /// False, with a line there, when memory is too short to keep the block, which is dropped then.
  bool async(std::function<void()> block);

 private:
  struct State;

  const String label_;
  const std::shared_ptr<State> state_;
};

}  // namespace QVPlatform
