#pragma once

#include <QVPlatform/Foundation/CallOut.h>

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace QVPlatform {

/// What a queue runs. What it captured may call out when it is destroyed, as it may when it runs.
using Block = std::function<void()>;

/// Takes the first block off the list, which has one.
inline Block takeFirst(std::deque<Block>& blocks) {
  Block first = std::move(blocks.front());
  blocks.pop_front();
  return first;
}

/// Runs the block as in callOut(), and destroys it, while the lock is released.
inline void runUnlocked(Block block, std::unique_lock<std::mutex>& lock) {
  lock.unlock();
  callOut(block);
  block = nullptr;
  lock.lock();
}

}  // namespace QVPlatform
