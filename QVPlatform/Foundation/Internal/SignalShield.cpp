#include <QVPlatform/Foundation/Internal/SignalShield.h>

#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <initializer_list>

namespace QVPlatform {

SignalShield::SignalShield() {
  sigset_t waiting;
  sigpending(&waiting);
  sigemptyset(&taken_);
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    if (sigismember(&waiting, signal) == 0) sigaddset(&taken_, signal);
  }
  pthread_sigmask(SIG_BLOCK, &taken_, &earlierMask_);
}

SignalShield::~SignalShield() {
  const int error = errno;
  constexpr timespec kNow{};
  while (sigtimedwait(&taken_, nullptr, &kNow) >= 0 || errno == EINTR) continue;
  pthread_sigmask(SIG_SETMASK, &earlierMask_, nullptr);
  errno = error;
}

}  // namespace QVPlatform
