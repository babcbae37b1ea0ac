#pragma once

#include <signal.h>
#include <time.h>

namespace QVPlatform {

/// Keeps SIGPIPE from the calling thread while it lives: TLS writes to a connection that the other
/// side has closed raise it, and the host of this library must neither die of it nor find its own
/// handling of signals changed.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() {
    sigemptyset(&brokenPipe_);
    sigaddset(&brokenPipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    // One that waits already, since the host blocks the signal, is the host's to receive.
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &brokenPipe_, &earlierMask_);
  }
  ~BrokenPipeGuard() {
    constexpr timespec kNoWait{};
    if (!wasPending_) sigtimedwait(&brokenPipe_, nullptr, &kNoWait);
    pthread_sigmask(SIG_SETMASK, &earlierMask_, nullptr);
  }
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
  sigset_t brokenPipe_;
  sigset_t earlierMask_;
  bool wasPending_;
};

}  // namespace QVPlatform
