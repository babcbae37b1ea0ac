#include <QVCore/QVNetworkManager.h>

#include <QVCore/Internal/QVSharedService.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVHTTPOperation.h>
#include <QVCore/QVUtils.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Networking/URL.h>

#include <new>
#include <string>
#include <utility>

using QVPlatform::callOut;
using QVPlatform::Date;
using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::Operation;
using QVPlatform::OperationQueue;
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::URL;
using QVPlatform::Value;

namespace {

constexpr std::uint32_t kDefaultMaxRequestsInQueue = 2000;
constexpr std::uint32_t kDefaultMaxRequestLifetime = 200000;

const String* const kHandledNames[] = {
    &kQVNotification_InternetChanged,    &kQVNotification_InternetDown,
    &kQVNotification_InternetUp,         &kQVNotification_OnBackground,
    &kQVNotification_OnForeground,       &kQVNotification_HTTPRequest,
    &kQVNotification_SegmentRequest,     &kQVNotification_ConfigurationRequest,
    &kQVNotification_UserAgentAvailable, &kQVNotification_StartingTheSDK,
    &kQVNotification_StoppingTheSDK,
};

/// The answer's name for a request whose name is a prefix and a suffix.
String withPrefixReplaced(const String& name, const String& prefix, const String& replacement) {
  return replacement + name.stringByReplacingOccurrencesOfString(prefix, "");
}

bool isRequest(const String& name) {
  return name == kQVNotification_HTTPRequest || name == kQVNotification_SegmentRequest ||
         name.hasPrefix(kQVNotification_ConfigurationRequest) ||
         name.hasPrefix(kQVNotification_HTTPPartnerRequest);
}

void require(bool isDone) {
  if (!isDone) throw std::bad_alloc();
}

}  // namespace

std::atomic<std::int32_t> QVNetworkManager::QV_INIT_STATE = QVInitStateNever;

std::shared_ptr<QVNetworkManager> QVNetworkManager::sharedInstance() {
  return QVSharedInstance<QVNetworkManager>::get(QV_INIT_STATE);
}

QVNetworkManager::~QVNetworkManager() {
  NotificationCenter::defaultCenter()->removeObserver(this);
  setOperationQueue(nullptr);
  setConsentQueue(nullptr);
  if (const auto sender = senderDelegate()) sender->setParent(nullptr);
  setSenderDelegate(nullptr);
  if (const auto listener = listenerDelegate()) listener->setParent(nullptr);
  setListenerDelegate(nullptr);
  if (const auto monitor = reachability()) monitor->stopNotifier();
  setReachability(nullptr);
}

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
  std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();
  std::shared_ptr<QVReachability> monitor = QVReachability::reachabilityForInternetConnection();
  std::shared_ptr<OperationQueue> hits = std::make_shared<OperationQueue>();
  std::shared_ptr<OperationQueue> consent = std::make_shared<OperationQueue>();
  bool hasConsentModule = QVPlatform::ClassRegistry::isRegistered("QVMobilePrivacy");
};

void QVNetworkManager::initialise() {
  const Parts parts;
  for (const String* name : kHandledNames) require(parts.listener->listen(*name));
  require(registerReachability());

  startListening(parts);
  nextRequestID_ = 0;
  nextRequestIDToCancel_ = 0;
  maxRequestsInQueue_ = kDefaultMaxRequestsInQueue;
  maxRequestLifetime_ = kDefaultMaxRequestLifetime;
  startReachability(parts.monitor);
  shouldWaitForUserAgent_ = false;
  startQueues(parts);
  callOut([this] { restoreStockedHit(); });
  QV_INIT_STATE = QVInitStateDone;
}

void QVNetworkManager::startListening(const Parts& parts) {
  if (const auto earlier = listenerDelegate()) earlier->setParent(nullptr);
  parts.sender->setParent(this);
  parts.listener->setParent(this);
  setSenderDelegate(parts.sender);
  setListenerDelegate(parts.listener);
}

void QVNetworkManager::startReachability(const std::shared_ptr<QVReachability>& monitor) {
  const auto earlier = reachability_.exchange(monitor);
  if (monitor) monitor->startNotifier();
  if (earlier) earlier->stopNotifier();
}

void QVNetworkManager::startQueues(const Parts& parts) {
  const bool isUnreachable = !isInternetReachable();
  managerState_ = parts.hasConsentModule ? QVManagerStateWaitingForStart : QVManagerStateStarted;
  parts.hits->setSuspended(parts.hasConsentModule || isUnreachable);
  parts.consent->setSuspended(isUnreachable);
  setOperationQueue(parts.hits);
  setConsentQueue(parts.consent);
}

// Requests.

bool QVNetworkManager::isValidURL(const String& url) { return isValidURL(URL::URLWithString(url)); }

bool QVNetworkManager::isValidURL(const std::optional<URL>& url) {
  return url && url->hasSchemeAndHost();
}

String QVNetworkManager::requestTypeForNotificationName(const String& name) {
  if (name.isSameObject(kQVNotification_HTTPRequest)) return kQVNotification_HTTPResponse;
  if (name.isSameObject(kQVNotification_SegmentRequest)) return kQVNotification_SegmentResponse;
  if (name.hasPrefix(kQVNotification_ConfigurationRequest)) {
    return withPrefixReplaced(name, kQVNotification_ConfigurationRequest,
                              kQVNotification_ConfigurationResponse);
  }
  if (name.hasPrefix(kQVNotification_HTTPPartnerRequest)) {
    return withPrefixReplaced(name, kQVNotification_HTTPPartnerRequest,
                              kQVNotification_HTTPPartnerResponse);
  }
  return "QVUnknownRequestType";
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
    Dictionary refused = data.copy();
    refused.set(kQVUserInfo_ErrorKey, kQVErrorMessageInvalidURL);
    postWithUserInfo(kQVNotification_HTTPRequestError, refused);
    return false;
  }
  const auto hits = operationQueue();
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

void QVNetworkManager::appendToWaitingHits(const String& text) {
  const auto hits = operationQueue();
  if (!hits) return;
  for (const auto& operation : hits->operations()) {
    auto* hit = dynamic_cast<QVHTTPOperation*>(operation.get());
    if (hit) callOut([&] { hit->addPostData(text); });
  }
}

void QVNetworkManager::updateQueueWithCategories(const String& text) {
  callOut([&] { appendToWaitingHits(text); });
}

void QVNetworkManager::updateQueueWithUserAgent(const String& userAgent) {
  callOut([&] { appendToWaitingHits(stringWithFormat("&QV_USER_AGENT=%@", {userAgent})); });
}

void QVNetworkManager::waitForUserAgent() {
  const auto userAgent = [] {
    return QVCoreVariables::sharedInstance()->getData(kQVPredefinedVariable_UserAgent);
  };
  if (!userAgent().isNil()) return;
  shouldWaitForUserAgent_ = true;
  suspendHits(true);
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
  if (!hits) return;
  const double now = Date::now().secondsSince1970;
  const double lifetime = maxRequestLifetime_;
  const auto expired = hits->firstOperationPassingTest([=](const Operation& operation) {
    const auto* hit = dynamic_cast<const QVHTTPOperation*>(&operation);
    return hit && now - static_cast<double>(hit->timestamp()) > lifetime;
  });
  if (expired) {
    expired->cancel();
  } else {
    removeOldestRequestOperation();
  }
}

void QVNetworkManager::removeOldestRequestOperation() {
  const auto hits = operationQueue();
  const std::uint32_t place = nextRequestIDToCancel_++;
  if (const auto operation = hits ? hits->operationAtIndex(place) : nullptr) {
    operation->cancel();
  } else {
    QVPlatform::consoleLog(
        stringWithFormat("no operation at position %@ of the hit queue to cancel", {place}));
  }
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
  } else if (isRequest(name)) {
    onHTTPRequestNotification(notification);
  } else if (name == kQVNotification_HTTPResponse) {
    onHTTPResponseNotification(notification);
  } else if (name == kQVNotification_InternetDown) {
    onInternetDown();
  } else if (name == kQVNotification_InternetUp) {
    onInternetUp();
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
    managerState_ = QVManagerStateStopped;  // what is queued, or comes later, still goes out
  }
}

void QVNetworkManager::onStartingTheSDK(const Notification& notification) {
  const String categories = notification.userInfo().get(kQVUserInfo_POSTData).stringValue();
  if (!categories.isNull()) updateQueueWithCategories(categories);
  registerReachabilityChanged();
  suspendHits(shouldWaitForUserAgent_ || !isInternetReachable());
  managerState_ = QVManagerStateStarted;
}

void QVNetworkManager::onAwaitedUserAgent(const Value& userAgent) {
  const bool isAwaited = shouldWaitForUserAgent_.exchange(false);
  const String text = userAgent.string();
  if (isAwaited && managerState_ == QVManagerStateWaitingForStart && !text.isNull()) {
    callOut([&] { updateQueueWithUserAgent(QVURLEncodedString(text)); });
  }
  if (managerState_ == QVManagerStateStarted) suspendHits(!isInternetReachable());
}

void QVNetworkManager::onHTTPRequestNotification(const Notification& notification) {
  Dictionary data = notification.userInfo();
  const bool isComplete = callOut([&] {
    data = data.copy();
    data.set(kQVUserInfo_RequestType, requestTypeForNotificationName(notification.name()));
    data.set(kQVUserInfo_RequestID, nextRequestID());
  });
  if (!isComplete) return postWithUserInfo(kQVNotification_HTTPRequestError, data);
  queueRequestWithData(std::move(data));
}

void QVNetworkManager::onHTTPResponseNotification(const Notification&) {}

void QVNetworkManager::onInternetDown() {
  suspendHits(true);
  suspendConsent(true);
}

void QVNetworkManager::onInternetUp() {
  if (managerState_ != QVManagerStateWaitingForStart) suspendHits(shouldWaitForUserAgent_);
  suspendConsent(false);
}

void QVNetworkManager::onForeground() {
  if (managerState_ != QVManagerStateWaitingForStart && isInternetReachable()) {
    suspendHits(shouldWaitForUserAgent_);
  }
  suspendConsent(false);
  if (!QVCoreVariables::sharedInstance()->enableSDKInBG()) restoreStockedHit();
}

void QVNetworkManager::onBackground() {
  if (QVCoreVariables::sharedInstance()->enableSDKInBG()) return;
  suspendConsent(true);
  suspendHits(true);
  saveAllHits();
}

void QVNetworkManager::suspendHits(bool isSuspended) {
  if (const auto queue = operationQueue()) queue->setSuspended(isSuspended);
}

void QVNetworkManager::suspendConsent(bool isSuspended) {
  if (const auto queue = consentQueue()) queue->setSuspended(isSuspended);
}

void QVNetworkManager::changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) {
  if (const auto sender = senderDelegate()) sender->setNotificationCenter(center);
  if (const auto listener = listenerDelegate()) listener->setNotificationCenter(center);
}

String QVNetworkManager::description() const {
  const auto hits = operationQueue();
  const std::size_t count = hits ? hits->operationCount() : 0;
  if (count <= 1) return "QVNetworkManager";  // one counts as in flight
  return stringWithFormat("QVNetworkManager : (waiting hits: %@)", {count - 1});
}

// Properties.

void QVNetworkManager::setReachability(std::shared_ptr<QVReachability> reachability) {
  reachability_.set(std::move(reachability));
}

void QVNetworkManager::setSenderDelegate(std::shared_ptr<QVEventSender> sender) {
  senderDelegate_.set(std::move(sender));
}

void QVNetworkManager::setListenerDelegate(std::shared_ptr<QVEventListener> listener) {
  listenerDelegate_.set(std::move(listener));
}

void QVNetworkManager::setOperationQueue(std::shared_ptr<OperationQueue> queue) {
  operationQueue_.set(std::move(queue));
}

void QVNetworkManager::setConsentQueue(std::shared_ptr<OperationQueue> queue) {
  consentQueue_.set(std::move(queue));
}
