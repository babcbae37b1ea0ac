#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVParticipant.h>
#include <QVCore/QVReachability.h>
#include <QVCore/QVSingleton.h>
#include <QVPlatform/Dispatch/OperationQueue.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Foundation/Value.h>
#include <QVPlatform/Networking/URL.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

enum class QVQueueEvent;

/// What consent allows. A kit waits for its start if the class name "QVMobilePrivacy" stands in the
/// ClassRegistry before the kit is started; later it changes nothing until reinit().
enum QVManagerState : std::int32_t {
  /// A consent module is there and has not started the kit: hits are held.
  QVManagerStateWaitingForStart = 0,
  /// Hits flow.
  QVManagerStateStarted = 1,
  /// The consent module stopped the kit. That holds no hits: see docs/consent.md.
  QVManagerStateStopped = 2,
};

/// What QVNetworkManager::shutdownWithin() leaves.
struct QVShutdownResult {
  /// How many hits were saved for the next start; those that cannot be archived, which the console
  /// log names, count too. None when none could be saved: the console log tells why, or another
  /// thread is just restoring hits, and saves them when it ends.
  std::optional<std::size_t> savedHits;
  /// Whether no hit is under way any more. Else one is, without an answer so far: it is among those
  /// that were saved, so that it may be sent twice, unless it ends before the process does.
  bool isIdle = true;
};

/// Turns request notifications into HTTP operations on two serial queues, one for hits and one for
/// what consent needs, and decides when these run.
///
/// The hit queue runs while the network is reachable, no user agent is awaited, and consent is
/// given or not asked for; the consent queue whenever the network is reachable and the application
/// is not in the background. Requests that may not go yet wait; they are saved to a file when the
/// application goes to the background and restored at the next start.
///
/// Threads: all operations may be called from any thread, at once; handling runs on the thread that
/// posted. Nothing waits for the network.
class QVCORE_EXPORT QVNetworkManager : public QVSingleton,
                                       public IQVEventListenerDelegate,
                                       public IQVEventSenderDelegate,
                                       public QVParticipant,
                                       public QVPlatform::KeyValueObserver {
 public:
  static std::shared_ptr<QVNetworkManager> sharedInstance();
  /// Whether the shared instance has been initialised. Initialises nothing.
  static bool isInitialised() noexcept;
  ~QVNetworkManager() override;

  /// See QVSingleton. Both return the receiver. reinit() makes new queues and drops what waited in
  /// the old ones; it does not undo earlier registrations for changes of reachability.
  std::shared_ptr<QVNetworkManager> init();
  std::shared_ptr<QVNetworkManager> reinit();

  // Requests.

  /// Whether the text parses as a URL with a scheme and a host. False for null.
  static bool isValidURL(const QVPlatform::String& url);
  static bool isValidURL(const std::optional<QVPlatform::URL>& url);
  /// Name of the notification that answers a request of this name. For plain and segment requests
  /// the name must be the very constant; everything unknown gives "QVUnknownRequestType".
  static QVPlatform::String requestTypeForNotificationName(const QVPlatform::String& name);
  /// The data of a request like the one that the user info of an answer or an error came of, to be
  /// posted once more under the request's name: a copy without what the core has added (type,
  /// number, content, response, request, the text of a refusal). As it stands an error's user info
  /// must not be posted: the response in it sends the request past the hits that are held. What
  /// consent or a user agent has appended to "POSTData" is kept. A request that was marked for the
  /// consent queue, and failed with a response, keeps its marker if it was for a configuration, and
  /// is a hit otherwise. Null for null.
  static QVPlatform::Dictionary requestDataFromUserInfo(const QVPlatform::Dictionary& userInfo);
  /// Queues one request, by its "url" and the rest of its data. False if the URL is not valid,
  /// which is also reported as HTTPRequestError with "Error : invalid URL" under "error". A full
  /// hit queue first has one of its operations cancelled.
  bool queueRequestWithData(QVPlatform::Dictionary data);
  /// Posts a notification with a copy of the dictionary and the manager as object.
  void postNetworkNotificationWithUserInfo(const QVPlatform::String& name,
                                           QVPlatform::Dictionary userInfo);
  /// Appends the text to the body of every request in the hit queue.
  void updateQueueWithCategories(const QVPlatform::String& text);
  /// Appends "&QV_USER_AGENT=" and the user agent, which is percent-encoded already.
  void updateQueueWithUserAgent(const QVPlatform::String& userAgent);
  /// Holds hits until the user agent is known, if it is not.
  void waitForUserAgent();
  /// Sets the limits of the hit queue: age in seconds and number of operations. Unchecked: a
  /// negative number counts as its unsigned pattern.
  void changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(std::int32_t maxLifetime,
                                                                        std::int32_t maxOperations);
  /// Cancels the first operation that is older than the limit, or else one by position.
  void removeOldOperationsInQueue();
  /// Cancels the operation at the position nextRequestIDToCancel and advances that position. Past
  /// the end there is none to cancel: the console log says so.
  void removeOldestRequestOperation();

  // Connectivity and lifecycle.

  /// Adds one more registration for changes of reachability.
  void registerReachabilityChanged();
  /// Goes by the monitor that posted, which need not be the manager's own.
  void reachabilityChanged(const QVPlatform::Notification& notification);
  /// Posts InternetUp or InternetDown, as named, and then InternetChanged.
  void sentReachabilityChanged(const QVPlatform::String& name);
  bool isInternetReachable() const;
  /// From now on the waiting hits are saved at each change of their number, for applications that
  /// may be ended while they run in the background: what was posted is in the file when the post
  /// returns. It does not keep the queues running there: QVCoreVariables::setEnableSDKInBG() does.
  /// Asked twice, it saves twice; a queue that reinit() makes is not observed.
  void enableRunningInBackground();
  void observeValueForKeyPathOfObjectChangeContext(
      const QVPlatform::String& keyPath, const std::shared_ptr<QVPlatform::Object>& object,
      const QVPlatform::Value& change, const void* context) override;
  /// The clean end of the kit: holds both queues for good, whatever else would resume them, waits
  /// until the hit that is under way has come to its end and its observers have been called, but no
  /// longer than `timeout`, and saves the hits that wait. A hit that is posted later is saved
  /// within the post, and goes out after the next start. So no hit is lost, and none is sent twice,
  /// unless the result says that one was still under way. What is under way in the consent queue is
  /// not waited for, and nothing of that queue is saved.
  ///
  /// May be called again, to wait on or to save again. reinit() starts the kit anew.
  ///
  /// Threads: may be called from any thread, and holds it for that long: the application's main
  /// thread, when its event loop hears of SIGTERM, is the usual one. Not from a signal handler.
  /// From an observer of a hit, on the hit queue's own thread, it does not wait. An observer that
  /// waits for the calling thread is waited for until the time is over.
  QVShutdownResult shutdownWithin(std::chrono::milliseconds timeout);
  /// Replaces the offline hits file by the hits that wait now, of several threads that do so at
  /// once by the newest state. Whatever is in their data and can be archived (KeyedArchiver) is
  /// saved; what cannot, a whole hit if need be, is left out with a line on the console log. When
  /// the file cannot be written, the console log tells why, and the old one stays.
  void saveAllHits();
  /// Queues what the offline hits file holds, under the old numbers, and removes the file; does
  /// nothing while hits are queued. The file is taken out of its place first (TakenFile), so that
  /// its hits are queued once, however many threads and processes restore, and what is saved
  /// meanwhile stays. A process that is killed in between leaves it to the next one that restores,
  /// which queues all of it: hits that were sent already are then sent twice.
  ///
  /// A file that is missing or is no keyed archive, entire and undamaged, restores nothing and
  /// stays where it is. One that cannot be read, and hits for which memory runs out, stay beside
  /// it, where no save replaces them, for the next restore. An archive that holds nothing under
  /// "offlineHits" is removed.
  void restoreStockedHit();

  // Notifications.

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override;
  void onNotificationReceived(const QVPlatform::Notification& notification) override;
  /// Numbers the request and queues it.
  void onHTTPRequestNotification(const QVPlatform::Notification& notification);
  /// Does nothing.
  void onHTTPResponseNotification(const QVPlatform::Notification& notification);

  /// "QVNetworkManager", with the number of waiting hits if there are any.
  QVPlatform::String description() const override;

  // Properties. Objects are null in a bare instance.

  /// Returns the number for the next request and counts on; wraps at 2^32.
  std::uint32_t nextRequestID() noexcept { return nextRequestID_++; }
  void setNextRequestID(std::uint32_t id) noexcept { nextRequestID_ = id; }
  std::uint32_t nextRequestIDToCancel() const noexcept { return nextRequestIDToCancel_; }
  void setNextRequestIDToCancel(std::uint32_t place) noexcept { nextRequestIDToCancel_ = place; }
  /// Always 0: kept for the modules that read it.
  std::uint32_t totalRequestSent() const noexcept { return 0; }
  std::uint32_t maxRequestLifetime() const noexcept { return maxRequestLifetime_; }
  std::uint32_t maxRequestsInQueue() const noexcept { return maxRequestsInQueue_; }
  std::int32_t managerState() const noexcept { return managerState_; }
  void setManagerState(std::int32_t state) noexcept { managerState_ = state; }
  bool shouldWaitForUserAgent() const noexcept { return shouldWaitForUserAgent_; }
  void setShouldWaitForUserAgent(bool isAwaited) noexcept { shouldWaitForUserAgent_ = isAwaited; }
  std::shared_ptr<QVReachability> reachability() const { return reachability_.get(); }
  void setReachability(std::shared_ptr<QVReachability> reachability) {
    reachability_.set(std::move(reachability));
  }
  std::shared_ptr<QVPlatform::OperationQueue> operationQueue() const {
    return operationQueue_.get();
  }
  void setOperationQueue(std::shared_ptr<QVPlatform::OperationQueue> queue) {
    operationQueue_.set(std::move(queue));
  }
  std::shared_ptr<QVPlatform::OperationQueue> consentQueue() const { return consentQueue_.get(); }
  void setConsentQueue(std::shared_ptr<QVPlatform::OperationQueue> queue) {
    consentQueue_.set(std::move(queue));
  }

 private:
  struct Parts;

  void initialise();
  void startReachability(const std::shared_ptr<QVReachability>& monitor);
  void startQueues(const Parts& parts);
  bool registerReachability();
  bool queueOrRefuse(QVPlatform::Dictionary& data);
  void postWithUserInfo(const QVPlatform::String& name, const QVPlatform::Dictionary& userInfo);
  void dispatch(const QVPlatform::Notification& notification);
  void onConsentNotification(const QVPlatform::Notification& notification);
  void onStartingTheSDK(const QVPlatform::Notification& notification);
  void onAwaitedUserAgent(const QVPlatform::Value& userAgent);
  void onForeground();
  void onBackground();
  /// Holds and resumes the queues by the rules for that event.
  void setGates(QVQueueEvent event);
  void setGates(QVQueueEvent event, const std::shared_ptr<QVPlatform::OperationQueue>& hits,
                const std::shared_ptr<QVPlatform::OperationQueue>& consent) const;

  static std::atomic<std::int32_t> QV_INIT_STATE;

  QVPlatform::Property<std::shared_ptr<QVReachability>> reachability_;
  std::atomic<bool> shouldWaitForUserAgent_{false};
  std::atomic<std::uint32_t> maxRequestLifetime_{0};
  std::atomic<std::uint32_t> maxRequestsInQueue_{0};
  std::atomic<std::int32_t> managerState_{QVManagerStateWaitingForStart};
  std::atomic<std::uint32_t> nextRequestID_{0};
  std::atomic<std::uint32_t> nextRequestIDToCancel_{0};
  QVPlatform::Property<std::shared_ptr<QVPlatform::OperationQueue>> operationQueue_;
  QVPlatform::Property<std::shared_ptr<QVPlatform::OperationQueue>> consentQueue_;
};
