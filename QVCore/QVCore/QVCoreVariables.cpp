#include <QVCore/QVCoreVariables.h>

#include <QVCore/Internal/QVSharedService.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVDebug.h>
#include <QVCore/QVUserDefaults.h>
#include <QVPlatform/Device/Device.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Files/UserDefaults.h>
#include <QVPlatform/Foundation/UUID.h>
#include <QVPlatform/WebKit/WebEngine.h>

#include <utility>

using QVPlatform::Device;
using QVPlatform::Dictionary;
using QVPlatform::MainQueue;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::ProcessPool;
using QVPlatform::String;
using QVPlatform::SystemVersion;
using QVPlatform::UserDefaults;
using QVPlatform::UUID;
using QVPlatform::Value;
using QVPlatform::WebEngine;
using QVPlatform::WebView;

namespace {

/// From this version on the advertising identifier takes the user's consent, for which the core
/// does not ask.
constexpr SystemVersion kAdvertisingIdentifierNeedsConsent{14, 0, 0};

/// What a device reports whose owner limits advertising.
constexpr const char* kNoAdvertisingIdentifier = "00000000-0000-0000-0000-000000000000";

}  // namespace

std::atomic<std::int32_t> QVCoreVariables::QV_INIT_STATE = QVInitStateNever;

std::shared_ptr<QVCoreVariables> QVCoreVariables::sharedInstance() {
  return QVSharedInstance<QVCoreVariables>::get(QV_INIT_STATE);
}

bool QVCoreVariables::isInitialised() noexcept { return QV_INIT_STATE == QVInitStateDone; }

QVCoreVariables::~QVCoreVariables() { end(); }

std::shared_ptr<QVCoreVariables> QVCoreVariables::init() {
  QVGuardedInit(QV_INIT_STATE, [this] { initialise(); });
  return std::static_pointer_cast<QVCoreVariables>(self());
}

std::shared_ptr<QVCoreVariables> QVCoreVariables::reinit() {
  QV_INIT_STATE = QVInitStateRequestedAgain;
  return init();
}

void QVCoreVariables::initialise() {
  setDynamicStore(std::make_shared<QVDynamicStore>()->init());
  setEnableSDKInBG(false);
  begin(this, std::make_shared<QVEventSender>()->init());
  // Before the identifiers, since the user agent may have to wait for the main thread, which may be
  // about to ask for this service itself.
  QV_INIT_STATE = QVInitStateDone;
  initializeAllCoreVariables();
}

void QVCoreVariables::initializeAllCoreVariables() {
  if (Device::systemVersion() < kAdvertisingIdentifierNeedsConsent) setIDFA();
  setIDFV();
  initSDKID();
  initNormalizedID();
  if (!QVDebug::shouldUseCustomProcessPool()) userAgent();
}

void QVCoreVariables::setIDFA() {
  addDataWithValue(kQVPredefinedVariable_IDFA, Device::advertisingIdentifier());
}

void QVCoreVariables::setIDFV() {
  addDataWithValue(kQVPredefinedVariable_IDFV, Device::identifierForVendor());
}

void QVCoreVariables::initSDKID() {
  const String& key = kQVPredefinedVariable_SDKID;
  Value identifier = QVUserDefaults::retrieveInfoFromUserDefaults(key);
  const auto isMissing = [&] { return identifier.isNil() || identifier == Value(""); };
  const Value made = isMissing() ? Value(UUID::UUIDString()) : Value();
  // In one step with another look, since the application may start twice at the same moment. That
  // look may find the other kind of a missing one; a second one does not.
  for (int looks = 0; looks < 2 && isMissing(); ++looks) {
    identifier = UserDefaults::standardUserDefaults().exchangeObjectForKey(identifier, made, key);
  }
  if (isMissing()) {
    identifier = made;
    QVUserDefaults::saveInfoToUserDefaultsForLabel(made, key);
  }
  addDataWithValue(key, identifier);
}

void QVCoreVariables::initNormalizedID() {
  const Value advertising = getData(kQVPredefinedVariable_IDFA);
  const bool isReal = !advertising.isNil() && advertising != Value(kNoAdvertisingIdentifier);
  addDataWithValue(kQVPredefinedVariable_NormalizedID,
                   isReal ? advertising : getData(kQVPredefinedVariable_SDKID));
}

void QVCoreVariables::initUserAgentWithProcessPool(std::shared_ptr<ProcessPool> pool) {
  setPool(std::move(pool));
  userAgent();
}

void QVCoreVariables::userAgent() {
  const Value known = getData(kQVPredefinedVariable_UserAgent);
  if (!known.isNil()) return announceUserAgent(known);
  const auto strong = std::static_pointer_cast<QVCoreVariables>(self());
  MainQueue::mainQueue().sync([strong] { strong->askWebViewForUserAgent(); });
}

void QVCoreVariables::askWebViewForUserAgent() {
  const auto engine = WebEngine::engine();
  const auto webView = engine ? engine->makeWebView({pool()}) : nullptr;
  setUaWebView(webView);
  if (!webView) return;
  const auto strong = std::static_pointer_cast<QVCoreVariables>(self());
  webView->evaluateJavaScript(
      "navigator.userAgent",
      [strong](const Value& userAgent, const std::shared_ptr<QVPlatform::Error>&) {
        if (!userAgent.isNil()) strong->announceUserAgent(userAgent);
      });
}

void QVCoreVariables::announceUserAgent(const Value& userAgent) {
  addDataWithValue(kQVPredefinedVariable_UserAgent, userAgent);
  if (const auto sender = senderDelegate()) {
    sender->send(Notification(kQVNotification_UserAgentAvailable, self(),
                              Dictionary{{kQVUserInfo_DataKey, userAgent}}));
  }
}

void QVCoreVariables::addData(const std::shared_ptr<QVDynamicStore>& other) {
  if (const auto store = dynamicStore()) store->addData(other);
}

void QVCoreVariables::addDataWithValue(const String& key, const Value& value) {
  if (const auto store = dynamicStore()) store->addDataWithValue(key, value);
}

Value QVCoreVariables::getData(const String& key) const {
  const auto store = dynamicStore();
  return store ? store->getData(key) : nullptr;
}

Value QVCoreVariables::removeData(const String& key) {
  const auto store = dynamicStore();
  return store ? store->removeData(key) : nullptr;
}

void QVCoreVariables::clearData() {
  if (const auto store = dynamicStore()) store->clearData();
}

void QVCoreVariables::changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) {
  moveSender(center);
}

void QVCoreVariables::setDynamicStore(std::shared_ptr<QVDynamicStore> store) {
  dynamicStore_.set(std::move(store));
}

void QVCoreVariables::setPool(std::shared_ptr<ProcessPool> pool) { pool_.set(std::move(pool)); }

void QVCoreVariables::setUaWebView(std::shared_ptr<WebView> webView) {
  uaWebView_.set(std::move(webView));
}
