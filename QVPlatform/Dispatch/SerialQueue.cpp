#include <QVPlatform/Dispatch/SerialQueue.h>

#include <QVPlatform/Dispatch/Thread.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace QVPlatform {

struct SerialQueue::State {
  void run() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return isClosed || !blocks.empty(); });
      if (blocks.empty()) return;
      auto block = std::move(blocks.front());
      blocks.pop_front();
      lock.unlock();
      callOut(block);
      block = nullptr;  // what it captured may call out when it is destroyed
      lock.lock();
    }
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> blocks;
  bool hasThread = false;
  bool isClosed = false;
};

SerialQueue::SerialQueue(String label)
    : label_(std::move(label)), state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue() {
  const std::lock_guard lock(state_->mutex);
  state_->isClosed = true;
  state_->changed.notify_one();
}

void SerialQueue::async(std::function<void()> block) {
  const std::lock_guard lock(state_->mutex);
  state_->blocks.push_back(std::move(block));
  if (!state_->hasThread) {
    state_->hasThread = startThread("QVSerialQueue", [state = state_] { state->run(); });
  }
  state_->changed.notify_one();
}

}  // namespace QVPlatform
