#pragma once

#include <cstddef>

namespace QVPlatform {

/// Striping: a number that all threads change would travel from core to core with its cache line.
/// It is kept in a few parts instead, each in a line of its own. A thread changes one part only;
/// who wants the number visits all. The parts are few, since each gate has them, and threads that
/// come and go leave none behind: when there are more threads than parts they share them, which
/// costs time and nothing else.
inline constexpr std::size_t kStripes = 4;
inline constexpr std::size_t kCacheLine = 64;

/// What is kept for each thread, because a post looks at it.
struct PostingThread {
  static std::size_t nextStripe() noexcept;

  const void* innermostPassage = nullptr;
  std::size_t stripe = kStripes;  // not chosen yet
};

/// In this model it lies at a fixed distance from the thread's pointer, while finding another
/// variable of a library takes a call. A process that loads the library late has room for few such
/// variables, so this is the only one.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local PostingThread postingThread;

/// The part that belongs to the calling thread, always the same one. Threads get them in turn.
inline std::size_t stripeOfThisThread() noexcept {
  if (postingThread.stripe == kStripes) postingThread.stripe = PostingThread::nextStripe();
  return postingThread.stripe;
}

}  // namespace QVPlatform
