#include <QVPlatform/Dispatch/Internal/Thread.h>

#include <QVPlatform/Foundation/Log.h>

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

namespace QVPlatform {
namespace {

/// New threads inherit the signal mask of the one that starts them.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &earlier_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &earlier_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t earlier_{};
};

}  // namespace

bool startDetachedThread(const char* name, std::function<void()> body) {
  const AllSignalsBlocked blocked;
  try {
    std::thread thread([body = std::move(body)] { callOut(body); });
    pthread_setname_np(thread.native_handle(), name);
    thread.detach();
    return true;
  } catch (const std::system_error& error) {
    consoleLog(String("no thread to be had: ") + String(error.what()));
    return false;
  }
}

}  // namespace QVPlatform
