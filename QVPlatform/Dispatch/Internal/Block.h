#pragma once

#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Mutex.h>

#include <deque>
#include <functional>
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

/// Runs the block as in callOut(), and destroys it, while the mutex is released.
inline void runUnlocked(Block block, Mutex& mutex) QV_REQUIRES(mutex) {
  const Unlocked unlocked(mutex);
  const Block own = std::move(block);  // goes before the mutex is taken again
  callOut(own);
}

}  // namespace QVPlatform
