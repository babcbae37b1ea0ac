#pragma once

#include <signal.h>

namespace QVPlatform {

/// Keeps what a write raises on this thread, SIGPIPE and SIGXFSZ, from the host, as long as it
/// lives: the write fails by its error alone. Leaves errno as it is. Signals that wait already when
/// it is made stay.
class SignalShield {
 public:
  SignalShield();
  ~SignalShield();
  SignalShield(const SignalShield&) = delete;
  SignalShield& operator=(const SignalShield&) = delete;

 private:
  sigset_t taken_{};  // raised from now on, they are the write's
  sigset_t earlierMask_{};
};

}  // namespace QVPlatform
