#pragma once

#include <QVPlatform/Dispatch/SerialQueue.h>
#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/SystemConfiguration/ReachabilitySource.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace QVPlatform {

/// A target whose reachability can be asked for at any moment and watched for changes.
///
/// Threads: every operation may be called from any thread. Lifetime: a target may be released at
/// any time, also by its callback; one that is released calls back no more.
class QVPLATFORM_EXPORT NetworkReachability final : public Object {
 public:
  using Callback = std::function<void(NetworkReachabilityFlags)>;

  /// A target for a host name or an address in text form. Null for a null or empty name and for one
  /// longer than any host name (253 bytes). The name is looked up in the background: a host is not
  /// reachable before its address is known for the first time.
  static std::shared_ptr<NetworkReachability> createWithName(const String& name);
  /// A target for an address; 0.0.0.0 and 169.254.0.0 mean what ReachabilityTarget says. Null when
  /// length or family are not those of an IPv4 socket address. The port does not matter.
  static std::shared_ptr<NetworkReachability> createWithAddress(const SocketAddress& address);

  /// Where the flags of targets made from now on come from; null sets the default again, which is
  /// the system's own network. To be set before the core starts.
  static void setSource(std::shared_ptr<ReachabilitySource> source);

  ~NetworkReachability() override;

  /// Stores the flags of this moment. False, and nothing stored, when they cannot be told. Never
  /// waits for the network.
  bool getFlags(NetworkReachabilityFlags* flags) const;

  /// The callback receives the flags after each change of them, once both it and a queue are set;
  /// it replaces an earlier one. An empty one removes it, which always succeeds; a call under way
  /// on the queue still ends. False, and no callback is set, when changes cannot be watched.
  bool setCallback(Callback newCallback);

  /// The queue that callbacks run on, in the order of the changes; it replaces an earlier one, and
  /// no change is lost then. Null detaches, which always succeeds. False, and the target is as it
  /// was, when the flags of this moment, from which changes count, cannot be told; but while the
  /// process has no file descriptor left to ask with, they count as 0, and what they are is a
  /// change as soon as it has one.
  bool setDispatchQueue(std::shared_ptr<SerialQueue> queue);

  /// Why the last operation of the calling thread that answered false did so: an errno value and
  /// its text. 0 and "Success" before any did.
  static int lastError() noexcept;
  static String lastErrorString();

 private:
  NetworkReachability(ReachabilityTarget target, std::shared_ptr<ReachabilitySource> source);
  static std::shared_ptr<NetworkReachability> create(ReachabilityTarget target);
  void scheduleEvaluation();
  void evaluate(std::uint64_t attachment);

  const ReachabilityTarget target_;
  const std::shared_ptr<ReachabilitySource> source_;

  ForkMutex mutex_;
  std::shared_ptr<const Callback> callback_ QV_GUARDED_BY(mutex_);
  std::shared_ptr<void> subscription_ QV_GUARDED_BY(mutex_);
  std::shared_ptr<SerialQueue> queue_ QV_GUARDED_BY(mutex_);
  /// Tells the blocks of the present queue from those of earlier ones.
  std::uint64_t attachment_ QV_GUARDED_BY(mutex_) = 0;
  bool isEvaluationPending_ QV_GUARDED_BY(mutex_) = false;
  NetworkReachabilityFlags knownFlags_ QV_GUARDED_BY(mutex_) = 0;
};

}  // namespace QVPlatform
