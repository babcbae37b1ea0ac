#pragma once

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/SystemConfiguration/Kernel/NetworkAddress.h>
#include <QVPlatform/SystemConfiguration/Kernel/Subscribers.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QVPlatform {

/// Knows the addresses of host names, without ever making a caller wait for them.
///
/// Lookups run one at a time on a thread of its own, as they may take as long as the name servers
/// like. A lookup that fails is tried again after 1, 2, 4, ... 32 seconds, since a network that
/// just came up often has no name server yet; then it rests until the next question, so an idle
/// process has no timer. One for the process, never destroyed. Every operation may be called from
/// any thread. In the child of a fork() the next question starts the thread anew.
class HostResolver {
 public:
  using Changed = Subscribers::Changed;

  static HostResolver& shared();

  /// The addresses as last found, best first; none when the name is not known (yet). A name that is
  /// not known is looked up in the background.
  std::vector<NetworkAddress> addresses(const String& host);
  /// Looks the name up anew in the background. Until that succeeds the addresses known so far stay.
  void refresh(const String& host);
  /// Calls `changed` on the resolver's thread after each lookup of the name that changed something,
  /// until the result is released, and perhaps once more.
  std::shared_ptr<void> subscribe(const String& host, Changed changed);

 private:
  using Clock = std::chrono::steady_clock;
  struct Host {
    std::vector<NetworkAddress> addresses;
    Subscribers subscribers;
    std::optional<Clock::time_point> nextLookup;  // none when the name rests
    int failures = 0;                             // in the present series of lookups
  };
  using Hosts = std::map<String, Host>;

  static void beginAnew(void* resolver);
  Host& host(const String& name) QV_REQUIRES(mutex_);
  void schedule(Host& host) QV_REQUIRES(mutex_);
  void run();
  Hosts::iterator nextDue() QV_REQUIRES(mutex_);
  void lookUp(const String& name) QV_REQUIRES(mutex_);

  ForkMutex mutex_{beginAnew, this};
  std::unique_ptr<std::condition_variable> changed_ QV_GUARDED_BY(mutex_) =
      std::make_unique<std::condition_variable>();
  bool isRunning_ QV_GUARDED_BY(mutex_) = false;
  Hosts hosts_ QV_GUARDED_BY(mutex_);
};

}  // namespace QVPlatform
