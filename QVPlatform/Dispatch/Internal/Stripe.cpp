#include <QVPlatform/Dispatch/Internal/Stripe.h>

#include <atomic>

namespace QVPlatform {

constinit thread_local PostingThread postingThread;

std::size_t PostingThread::nextStripe() noexcept {
  static constinit std::atomic<std::size_t> threads{0};
  // Relaxed: nothing else depends on it.
  return threads.fetch_add(1, std::memory_order_relaxed) % kStripes;
}

}  // namespace QVPlatform
