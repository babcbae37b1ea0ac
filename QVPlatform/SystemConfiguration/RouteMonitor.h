#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace QVPlatform {

/// Tells its subscribers when the kernel's links, addresses, routes or routing rules changed.
///
/// One for the process, never destroyed. Its thread starts with the first subscription and belongs
/// to the network namespace of the thread that made it; it sleeps until the kernel speaks.
class RouteMonitor {
 public:
  using Changed = std::function<void()>;

  static RouteMonitor& shared();

  /// Calls `changed` on the monitor's thread, once for a burst of changes, until the result is
  /// released, and perhaps once more. Null, with the reason in errno, when the kernel's events are
  /// not to be had.
  std::shared_ptr<void> subscribe(Changed changed);

 private:
  bool start();
  void run(int socket);
  void callSubscribers();

  std::mutex mutex_;
  bool isRunning_ = false;
  std::vector<std::weak_ptr<const Changed>> subscribers_;
};

}  // namespace QVPlatform
