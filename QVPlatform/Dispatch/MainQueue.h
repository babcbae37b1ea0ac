#pragma once

#include <QVPlatform/Export.h>

#include <functional>
#include <memory>

namespace QVPlatform {

/// The queue of blocks that run on the main thread of the process, one after the other.
///
/// The main thread belongs to the host, so the host runs the blocks: with run() when it has no
/// event loop, else by watching fileDescriptor() in its loop and calling drain() when that is
/// readable. Threads: async(), sync() and stop() may be called from any thread, the others from the
/// main thread. The queue lives as long as the process; in the child of a fork() it is empty, the
/// main thread is the one that called fork(), and the descriptor, under its old number, the child's
/// own.
class QVPLATFORM_EXPORT MainQueue {
 public:
  static MainQueue& mainQueue();
  /// Whether the caller runs on the thread that runs main().
  static bool isMainThread() noexcept;

  /// Hands in a block and returns at once. What a block throws is reported on the console log.
  /// False, with a line there, when memory is too short to keep the block, which is dropped then.
  bool async(std::function<void()> block);
  /// Runs the block on the main thread and returns when it has run: at once when called there, else
  /// as soon as the main thread comes to it. A main thread that waits for the caller deadlocks.
  /// False as above, when the block was dropped.
  bool sync(std::function<void()> block);

  /// Runs blocks as they come until stop().
  void run();
  /// Makes run() return after the block that it is running. A stop() before run() is kept for it.
  void stop();

  /// A descriptor that is readable while blocks wait; it belongs to the queue and is never closed.
  /// -1 when the system has none to give.
  int fileDescriptor();
  /// Runs the blocks that wait now, not those that they hand in, and returns.
  void drain();

 private:
  MainQueue();
  ~MainQueue();
  struct State;

  const std::unique_ptr<State> state_;
};

}  // namespace QVPlatform
