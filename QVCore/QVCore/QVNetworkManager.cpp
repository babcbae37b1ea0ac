#include <QVCore/QVNetworkManager.h>

#include <QVCore/Internal/QVContainer.h>
#include <QVCore/Internal/QVOfflineHits.h>
#include <QVCore/Internal/QVQueueGate.h>
#include <QVCore/Internal/QVRequestData.h>
#include <QVCore/Internal/QVRequestNames.h>
#include <QVCore/Internal/QVSharedService.h>
#include <QVCore/Internal/QVToldStatus.h>
#include <QVCore/Internal/QVWaitingHits.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVHTTPOperation.h>
#include <QVCore/QVUtils.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ClassRegistry.h>

#include <new>
#include <utility>

using QVPlatform::callOut;
using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::OperationQueue;
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::URL;
using QVPlatform::Value;

namespace {

constexpr std::uint32_t kDefaultMaxRequestsInQueue = 2000;
constexpr std::uint32_t kDefaultMaxRequestLifetime = 200000;

/// InternetChanged, which follows the two others, is heard and left at that.
const String* const kHandledNames[] = {
    &kQVNotification_InternetChanged,    &kQVNotification_InternetDown,
    &kQVNotification_InternetUp,         &kQVNotification_OnBackground,
    &kQVNotification_OnForeground,       &kQVNotification_HTTPRequest,
    &kQVNotification_SegmentRequest,     &kQVNotification_ConfigurationRequest,
    &kQVNotification_UserAgentAvailable, &kQVNotification_StartingTheSDK,
    &kQVNotification_StoppingTheSDK,
};

/// Its address tells the manager's own observation of the hit queue from any other.
constexpr char OperationQueueCountChange = 0;

}  // namespace

std::atomic<std::int32_t> QVNetworkManager::QV_INIT_STATE = QVInitStateNever;

std::shared_ptr<QVNetworkManager> QVNetworkManager::sharedInstance() {
  return QVSharedInstance<QVNetworkManager>::get(QV_INIT_STATE);
}

QVNetworkManager::~QVNetworkManager() {
  NotificationCenter::defaultCenter()->removeObserver(this);
  setOperationQueue(nullptr);
  setConsentQueue(nullptr);
  end();
  if (const auto monitor = reachability()) monitor->stopNotifier();
  setReachability(nullptr);
}

bool QVNetworkManager::isInitialised() noexcept { return QV_INIT_STATE == QVInitStateDone; }

std::shared_ptr<QVNetworkManager> QVNetworkManager::init() {
  QVGuardedInit(QV_INIT_STATE, [this] { initialise(); });
  return std::static_pointer_cast<QVNetworkManager>(self());
}

std::shared_ptr<QVNetworkManager> QVNetworkManager::reinit() {
  QV_INIT_STATE = QVInitStateRequestedAgain;
  return init();
}

/// What the initialisation makes before it changes anything, so that a want of memory leaves the
/// manager as it was.
struct QVNetworkManager::Parts {
  std::shared_ptr<QVEventSender> sender = std::make_shared<QVEventSender>()->init();
  std::shared_ptr<QVEventListener> listener = makeListener(kHandledNames);
  std::shared_ptr<QVReachability> monitor = QVReachability::reachabilityForInternetConnection();
  std::shared_ptr<OperationQueue> hits = std::make_shared<OperationQueue>();
  std::shared_ptr<OperationQueue> consent = std::make_shared<OperationQueue>();
  bool hasConsentModule = QVPlatform::ClassRegistry::isRegistered("QVMobilePrivacy");
};

void QVNetworkManager::initialise() {
  const Parts parts;
  if (!registerReachability()) throw std::bad_alloc();

  begin(this, parts.sender);
  begin(this, parts.listener);
  nextRequestID_ = 0;
  nextRequestIDToCancel_ = 0;
  maxRequestsInQueue_ = kDefaultMaxRequestsInQueue;
  maxRequestLifetime_ = kDefaultMaxRequestLifetime;
  startReachability(parts.monitor);
  shouldWaitForUserAgent_ = false;
  startQueues(parts);
  QVContainer::claim();
  callOut([this] { restoreStockedHit(); });
  QV_INIT_STATE = QVInitStateDone;
}

void QVNetworkManager::startReachability(const std::shared_ptr<QVReachability>& monitor) {
  const auto earlier = reachability_.exchange(monitor);
  if (monitor) monitor->startNotifier();
  if (earlier) earlier->stopNotifier();
}

void QVNetworkManager::startQueues(const Parts& parts) {
  managerState_ = parts.hasConsentModule ? QVManagerStateWaitingForStart : QVManagerStateStarted;
  setGates(QVQueueEvent::kQueuesMade, parts.hits, parts.consent);
  setOperationQueue(parts.hits);
  setConsentQueue(parts.consent);
}

// Requests.

bool QVNetworkManager::isValidURL(const String& url) { return isValidURL(URL::URLWithString(url)); }

bool QVNetworkManager::isValidURL(const std::optional<URL>& url) {
  return url && url->hasSchemeAndHost();
}

String QVNetworkManager::requestTypeForNotificationName(const String& name) {
  return QVRequestNames::answerTo(name);
}

Dictionary QVNetworkManager::requestDataFromUserInfo(const Dictionary& userInfo) {
  return QVRequestData::withoutOutcome(userInfo);
}

bool QVNetworkManager::queueRequestWithData(Dictionary data) {
  bool isQueued = false;
  // Whoever asked waits for an answer, and to give this one takes no memory.
  if (!callOut([&] { isQueued = queueOrRefuse(data); })) {
    postWithUserInfo(kQVNotification_HTTPRequestError, data);
  }
  return isQueued;
}

/// Takes the data only when nothing can go wrong any more.
bool QVNetworkManager::queueOrRefuse(Dictionary& data) {
  auto url = URL::URLWithString(data.get(kQVUserInfo_URLKey).string());
  if (!isValidURL(url)) {
    const Dictionary refused = QVRequestData::refused(data);
    const QVToldStatus noAnswer(0);  // though an answer may be what made an observer ask for it
    postWithUserInfo(kQVNotification_HTTPRequestError, refused);
    return false;
  }
  const auto hits = operationQueue();
  // The hit queue makes room, whichever queue the request is for.
  if (hits && hits->operationCount() >= maxRequestsInQueue_) {
    callOut([this] { removeOldOperationsInQueue(); });
  }
  const bool isForConsent = !data.get(kQVUserInfo_ResponseKey).isNil();
  const auto queue = isForConsent ? consentQueue() : hits;
  if (!queue) return true;
  const auto operation = std::make_shared<QVHTTPOperation>();
  data = std::move(data).copy();
  operation->initWithData(std::move(data), std::move(url));
  if (queue->addOperation(operation)) return true;
  data = operation->userInfo();
  throw std::bad_alloc();
}

void QVNetworkManager::postNetworkNotificationWithUserInfo(const String& name,
                                                           Dictionary userInfo) {
  // An answer without a copy is better than none.
  callOut([&] { userInfo = std::move(userInfo).copy(); });
  postWithUserInfo(name, userInfo);
}

void QVNetworkManager::postWithUserInfo(const String& name, const Dictionary& userInfo) {
  if (const auto sender = senderDelegate()) sender->send(Notification(name, self(), userInfo));
}

void QVNetworkManager::updateQueueWithCategories(const String& text) {
  QVWaitingHits::append(operationQueue(), text);
}

void QVNetworkManager::updateQueueWithUserAgent(const String& userAgent) {
  callOut([&] { updateQueueWithCategories(stringWithFormat("&QV_USER_AGENT=%@", {userAgent})); });
}

void QVNetworkManager::waitForUserAgent() {
  const auto userAgent = [] {
    return QVCoreVariables::sharedInstance()->getData(kQVPredefinedVariable_UserAgent);
  };
  if (!userAgent().isNil()) return;
  shouldWaitForUserAgent_ = true;
  setGates(QVQueueEvent::kUserAgentAwaited);
  // It may have come since the first look: its notification went by, or was handled before the hits
  // were held.
  const Value known = userAgent();
  if (!known.isNil()) onAwaitedUserAgent(known);
}

void QVNetworkManager::changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(
    std::int32_t maxLifetime, std::int32_t maxOperations) {
  maxRequestsInQueue_ = static_cast<std::uint32_t>(maxOperations);
  maxRequestLifetime_ = static_cast<std::uint32_t>(maxLifetime);
}

void QVNetworkManager::removeOldOperationsInQueue() {
  const auto hits = operationQueue();
  if (hits && !QVWaitingHits::cancelFirstOlderThan(hits, maxRequestLifetime_)) {
    removeOldestRequestOperation();
  }
}

/// The position goes on at each call, whatever has left the queue meanwhile, and so drifts away
/// from the oldest hit. This is meant.
void QVNetworkManager::removeOldestRequestOperation() {
  QVWaitingHits::cancelAtPosition(operationQueue(), nextRequestIDToCancel_++);
}

// Dispatch.

void QVNetworkManager::onNotificationReceived(const Notification& notification) {
  callOut([&] { dispatch(notification); });
}

void QVNetworkManager::dispatch(const Notification& notification) {
  const String& name = notification.name();
  onConsentNotification(notification);
  if (name == kQVNotification_UserAgentAvailable && shouldWaitForUserAgent_) {
    onAwaitedUserAgent(notification.userInfo().get(kQVUserInfo_DataKey));
  } else if (QVRequestNames::isRequest(name)) {
    onHTTPRequestNotification(notification);
  } else if (name == kQVNotification_HTTPResponse) {
    onHTTPResponseNotification(notification);
  } else if (name == kQVNotification_InternetDown) {
    setGates(QVQueueEvent::kInternetDown);
  } else if (name == kQVNotification_InternetUp) {
    setGates(QVQueueEvent::kInternetUp);
  } else if (name == kQVNotification_OnForeground) {
    onForeground();
  } else if (name == kQVNotification_OnBackground) {
    onBackground();
  }
}

void QVNetworkManager::onConsentNotification(const Notification& notification) {
  if (notification.name() == kQVNotification_StartingTheSDK) {
    onStartingTheSDK(notification);
  } else if (notification.name() == kQVNotification_StoppingTheSDK) {
    const auto hits = operationQueue();
    if (managerState_ == QVManagerStateWaitingForStart && hits) hits->cancelAllOperations();
    // Holds nothing, on purpose: what waits in a kit that ran, or comes later, still goes out.
    managerState_ = QVManagerStateStopped;
  }
}

void QVNetworkManager::onStartingTheSDK(const Notification& notification) {
  const String categories = notification.userInfo().get(kQVUserInfo_POSTData).stringValue();
  if (!categories.isNull()) updateQueueWithCategories(categories);
  // Once more with each start, on purpose: later changes are then told that many times.
  registerReachabilityChanged();
  setGates(QVQueueEvent::kStartingTheSDK);
  managerState_ = QVManagerStateStarted;
}

void QVNetworkManager::onAwaitedUserAgent(const Value& userAgent) {
  const bool isAwaited = shouldWaitForUserAgent_.exchange(false);
  const String text = userAgent.string();
  // In the other states what waited goes out without it, on purpose.
  if (isAwaited && managerState_ == QVManagerStateWaitingForStart && !text.isNull()) {
    callOut([&] { updateQueueWithUserAgent(QVURLEncodedString(text)); });
  }
  setGates(QVQueueEvent::kAwaitedUserAgentCame);
}

void QVNetworkManager::onHTTPRequestNotification(const Notification& notification) {
  Dictionary data = notification.userInfo();
  const bool isComplete = callOut([&] {
    data = QVRequestData::numbered(data, requestTypeForNotificationName(notification.name()),
                                   nextRequestID());
  });
  if (!isComplete) return postWithUserInfo(kQVNotification_HTTPRequestError, data);
  queueRequestWithData(std::move(data));
}

/// Empty on purpose: answers are not listened for, and a module that hands one in changes nothing.
void QVNetworkManager::onHTTPResponseNotification(const Notification&) {}

void QVNetworkManager::onForeground() {
  setGates(QVQueueEvent::kForeground);
  if (!QVCoreVariables::sharedInstance()->enableSDKInBG()) restoreStockedHit();
}

void QVNetworkManager::onBackground() {
  if (QVCoreVariables::sharedInstance()->enableSDKInBG()) return;
  setGates(QVQueueEvent::kBackground);
  saveAllHits();
}

void QVNetworkManager::setGates(QVQueueEvent event) {
  setGates(event, operationQueue(), consentQueue());
}

void QVNetworkManager::setGates(QVQueueEvent event, const std::shared_ptr<OperationQueue>& hits,
                                const std::shared_ptr<OperationQueue>& consent) const {
  const auto steps = QVQueueStepsAfter(event, managerState_, shouldWaitForUserAgent_,
                                       [this] { return isInternetReachable(); });
  QVTakeQueueSteps(steps, hits, consent);
}

// Connectivity and lifecycle.

void QVNetworkManager::registerReachabilityChanged() { registerReachability(); }

bool QVNetworkManager::registerReachability() {
  return NotificationCenter::defaultCenter()->addObserver(
      this, [this](const Notification& notification) { reachabilityChanged(notification); },
      kQVReachabilityChangedNotification);
}

void QVNetworkManager::reachabilityChanged(const Notification& notification) {
  const auto monitor = std::dynamic_pointer_cast<QVReachability>(notification.object());
  if (!monitor) return;
  callOut([&] {
    QVCoreVariables::sharedInstance()->addDataWithValue(kQVPredefinedVariable_Connexion,
                                                        monitor->currentReachabilityString());
  });
  switch (monitor->currentReachabilityStatus()) {
    case QVNetworkStatusNotReachable:
      return sentReachabilityChanged(kQVNotification_InternetDown);
    case QVNetworkStatusViaWWAN:
    case QVNetworkStatusViaWiFi:
      return sentReachabilityChanged(kQVNotification_InternetUp);
  }
}

void QVNetworkManager::sentReachabilityChanged(const String& name) {
  postWithUserInfo(name, nullptr);
  postWithUserInfo(kQVNotification_InternetChanged, {{kQVUserInfo_DataKey, name}});
}

bool QVNetworkManager::isInternetReachable() const {
  const auto monitor = reachability();
  return monitor && monitor->isReachable();
}

void QVNetworkManager::enableRunningInBackground() {
  const auto manager = std::static_pointer_cast<QVNetworkManager>(self());
  if (const auto hits = operationQueue()) {
    QVOfflineHits::expectChanges();
    hits->addObserverForOperationCount(manager, &OperationQueueCountChange);
  }
}

void QVNetworkManager::observeValueForKeyPathOfObjectChangeContext(
    const String& keyPath, const std::shared_ptr<QVPlatform::Object>& object, const Value&,
    const void* context) {
  if (context == &OperationQueueCountChange && object == operationQueue() &&
      keyPath == String("operationCount")) {
    saveAllHits();
  }
}

QVShutdownResult QVNetworkManager::shutdownWithin(std::chrono::milliseconds timeout) {
  QVShutdownResult result;
  if (const auto consent = consentQueue()) consent->stopWithin(std::chrono::milliseconds::zero());
  if (const auto hits = operationQueue()) {
    // What is posted later, or ends after its time, changes what is to be in the file.
    if (!hits->isStopped()) enableRunningInBackground();
    result.isIdle = hits->stopWithin(timeout);
  }
  result.savedHits = QVOfflineHits::save([this] { return operationQueue(); });
  return result;
}

void QVNetworkManager::saveAllHits() {
  QVOfflineHits::save([this] { return operationQueue(); });
}

void QVNetworkManager::restoreStockedHit() {
  // A hit for which memory is short stays stored rather than be answered by an error.
  QVOfflineHits::restore([this] { return operationQueue(); },
                         [this](Dictionary& hit) { queueOrRefuse(hit); });
}

void QVNetworkManager::changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) {
  moveSender(center);
  moveListener(center);
}

String QVNetworkManager::description() const {
  const auto hits = operationQueue();
  const std::size_t count = hits ? hits->operationCount() : 0;
  if (count <= 1) return "QVNetworkManager";  // one counts as in flight
  return stringWithFormat("QVNetworkManager : (waiting hits: %@)", {count - 1});
}
