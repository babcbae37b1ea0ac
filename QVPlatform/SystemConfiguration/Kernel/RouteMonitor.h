#pragma once

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/SystemConfiguration/Kernel/Subscribers.h>

#include <memory>

struct mnl_socket;

namespace QVPlatform {

/// Tells its subscribers when the kernel's links, addresses, routes or routing rules changed.
///
/// One for the process, never destroyed. Its thread starts with the first subscription and belongs
/// to the network namespace of the thread that made it; it sleeps until the kernel speaks. While
/// the process is short of file descriptors or memory, a second thread tries again, after 0.1
/// seconds, 0.2, and so on up to a minute, for as long as there are subscribers. In the child of a
/// fork() the next subscription starts both anew.
class RouteMonitor {
 public:
  using Changed = Subscribers::Changed;

  static RouteMonitor& shared();

  /// Calls `changed` on the monitor's thread, once for a burst of changes, until the result is
  /// released, and perhaps once more. Null, with the reason in errno, when the kernel's events are
  /// not to be had; but if what they take is only short, they come when it is there again.
  std::shared_ptr<void> subscribe(Changed changed);

  /// For who asked the kernel in vain: calls the subscribers once it can be asked again, if what
  /// that takes is only short, as the errno value says.
  void callWhenKernelAnswers(int error);

 private:
  static void beginAnew(void* monitor);
  bool start() QV_REQUIRES(mutex_);
  void run(mnl_socket* socket);
  bool startRetrying(int error) QV_REQUIRES(mutex_);
  void retry();
  bool isRetryOver() QV_REQUIRES(mutex_);
  void callSubscribers();

  ForkMutex mutex_{beginAnew, this};
  int socket_ QV_GUARDED_BY(mutex_) = -1;  // of the thread, while it runs
  bool isRetrying_ QV_GUARDED_BY(mutex_) = false;
  Subscribers subscribers_ QV_GUARDED_BY(mutex_);
};

}  // namespace QVPlatform
