#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Dispatch/SerialQueue.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

/// How the network is reached. Only the values below exist.
enum QVNetworkStatus : int {
  QVNetworkStatusNotReachable = 0,
  /// Over the cellular network.
  QVNetworkStatusViaWWAN = 1,
  /// Over anything else.
  QVNetworkStatusViaWiFi = 2,
};

/// Watches whether a host, an address or the network as a whole can be reached.
///
/// It answers at any moment from the flags of that moment, and between startNotifier() and
/// stopNotifier() it signals each change of the flags, first with a block on a serial queue of its
/// own, then with kQVReachabilityChangedNotification on the main queue, posted on the default
/// center with the monitor as object and no user info. docs/reachability.md says where the flags
/// come from.
///
/// Threads: every operation may be called from any thread; startNotifier() and stopNotifier() not
/// at the same time on one monitor. A query never waits for the network. Lifetime: held by
/// std::shared_ptr. A monitor that notifies holds itself: it lives until stopNotifier(), which the
/// owner must call; a block or notification that is under way then holds it too.
class QVCORE_EXPORT QVReachability : public QVPlatform::Object {
 public:
  using Flags = QVPlatform::NetworkReachabilityFlags;
  using Block = std::function<void(const std::shared_ptr<QVReachability>&)>;

  /// A new monitor of a host name, or of an address in text form. Null when there is no such
  /// target: the name is null, empty or too long.
  static std::shared_ptr<QVReachability> reachabilityWithHostName(
      const QVPlatform::String& hostName);
  static std::shared_ptr<QVReachability> reachabilityWithHostname(
      const QVPlatform::String& hostname);
  /// A new monitor of an IPv4 address; null when length or family are not those of one.
  static std::shared_ptr<QVReachability> reachabilityWithAddress(
      const QVPlatform::SocketAddress& address);
  /// A new monitor of 0.0.0.0: any route into the Internet.
  static std::shared_ptr<QVReachability> reachabilityForInternetConnection();
  /// A new monitor of 169.254.0.0: the local network.
  static std::shared_ptr<QVReachability> reachabilityForLocalWiFi();

  /// A bare monitor, to be made ready by initWithReachabilityRef(); until then nothing is
  /// reachable.
  QVReachability();
  /// Sets the target, and the cellular network to count. Returns the receiver.
  std::shared_ptr<QVReachability> initWithReachabilityRef(
      std::shared_ptr<QVPlatform::NetworkReachability> reachabilityRef);
  ~QVReachability() override;

  /// Begins to signal changes. Changes count from the flags of this moment. On a monitor that
  /// notifies already, a new serial queue takes the place of the earlier one.
  /// False, with one line on the console log, and the monitor does not notify, when it has no
  /// target or one that cannot be watched, when no std::shared_ptr holds it, and when memory is
  /// short. While the process has no file descriptor left, it starts all the same, and the flags
  /// count as 0 until there is one again.
  bool startNotifier();
  /// Ends the signals, except for a block or notification that is under way. On a monitor that does
  /// not notify nothing happens. The caller must hold a reference if it goes on to use the monitor.
  void stopNotifier();

  /// Whether these flags mean reachable: they say Reachable, no transient connection is yet to be
  /// made, and the way is not cellular while reachableOnWWAN() is false.
  bool isReachableWithFlags(Flags flags) const;

  // The following tell of this moment; all are false, 0, or what stands for it, when the flags
  // cannot be read.

  bool isReachable() const;
  /// Whether the way is cellular, whether or not that counts.
  bool isReachableViaWWAN() const;
  /// Whether there is a way, and it is not cellular, whether or not a connection is yet to be made.
  bool isReachableViaWiFi() const;
  bool isConnectionRequired() const;
  bool connectionRequired() const;
  /// Whether a connection is yet to be made, and is made for whoever wants it.
  bool isConnectionOnDemand() const;
  /// Whether a connection is yet to be made, for which somebody must do something.
  bool isInterventionRequired() const;
  QVNetworkStatus currentReachabilityStatus() const;
  Flags reachabilityFlags() const;
  /// "WiFi", "Cellular" or "Connection Type Unavailable". While reachableOnWWAN() is false,
  /// "Cellular" stands for a network that is not reachable.
  QVPlatform::String currentReachabilityString() const;
  /// One character a flag, for logs: "-R -------".
  QVPlatform::String currentReachabilityFlags() const;

  /// Signals a change to these flags: calls the block on the calling thread, then hands the
  /// notification to the main queue. Called on the serial queue for every change.
  void reachabilityChanged(Flags flags);

  /// "<QVReachability: 0x5581c0de>": the class and the low 32 bits of the address.
  QVPlatform::String description() const override;

  /// Whether a way over the cellular network counts as reachable. True by default.
  bool reachableOnWWAN() const { return reachableOnWWAN_; }
  void setReachableOnWWAN(bool reachableOnWWAN) { reachableOnWWAN_ = reachableOnWWAN; }
  /// Called on the serial queue when a change leaves the target reachable; empty for none. To be
  /// set before startNotifier(). A block that holds the monitor keeps it alive.
  Block reachableBlock() const { return reachableBlock_.get(); }
  void setReachableBlock(Block block) { reachableBlock_.set(std::move(block)); }
  /// The same for a change that leaves it unreachable.
  Block unreachableBlock() const { return unreachableBlock_.get(); }
  void setUnreachableBlock(Block block) { unreachableBlock_.set(std::move(block)); }

  /// The target; null for a bare monitor.
  std::shared_ptr<QVPlatform::NetworkReachability> reachabilityRef() const {
    return reachabilityRef_.get();
  }
  /// Where changes are delivered while the monitor notifies, else null.
  std::shared_ptr<QVPlatform::SerialQueue> reachabilitySerialQueue() const {
    return reachabilitySerialQueue_.get();
  }
  /// The monitor itself while it notifies, else null.
  std::shared_ptr<QVReachability> reachabilityObject() const { return reachabilityObject_.get(); }

 private:
  bool watchTarget();
  bool failToStart(const char* operation, const QVPlatform::String& reason);

  std::atomic<bool> reachableOnWWAN_ = false;
  QVPlatform::Property<std::shared_ptr<QVPlatform::NetworkReachability>> reachabilityRef_;
  QVPlatform::Property<std::shared_ptr<QVPlatform::SerialQueue>> reachabilitySerialQueue_;
  QVPlatform::Property<Block> reachableBlock_;
  QVPlatform::Property<Block> unreachableBlock_;
  QVPlatform::Property<std::shared_ptr<QVReachability>> reachabilityObject_;
};
