#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVDynamicStore.h>
#include <QVCore/QVParticipant.h>
#include <QVCore/QVSingleton.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/WebKit/WebView.h>

#include <atomic>
#include <cstdint>
#include <memory>

/// The kit's variables under their names (kQVPredefinedVariable_*): the identifiers of device and
/// installation, the user agent, the kind of connection, and what other modules add.
///
/// init() derives the identifiers and begins to ask the web engine for its user agent, which takes
/// a while: kQVNotification_UserAgentAvailable tells that it is there. A bare instance keeps
/// nothing and posts nothing.
///
/// Threads: all operations may be called from any thread.
class QVCORE_EXPORT QVCoreVariables : public QVSingleton,
                                      public IQVDynamicStore,
                                      public IQVEventSenderDelegate,
                                      protected QVParticipant {
 public:
  static std::shared_ptr<QVCoreVariables> sharedInstance();
  /// Whether the shared instance has been initialised. Initialises nothing.
  static bool isInitialised() noexcept;
  ~QVCoreVariables() override;

  /// See QVSingleton. Both return the receiver. reinit() begins with a new store: what other
  /// modules had added is dropped, and every identifier is derived again. Other threads get the
  /// shared instance as soon as it has its store, before the identifiers are in it. On a thread
  /// other than the main one both wait as userAgent() does.
  std::shared_ptr<QVCoreVariables> init();
  std::shared_ptr<QVCoreVariables> reinit();

  /// The steps of init() after the store is made: each of the four below, and userAgent() unless
  /// the application will hand in its own process pool (QVDebug::useCustomWKProcessPool()). The
  /// advertising identifier is read on systems below 14.0.0 only.
  void initializeAllCoreVariables();
  /// Stores the device's advertising identifier, if it has one.
  void setIDFA();
  /// Stores the device's identifier for vendor, if it has one.
  void setIDFV();
  /// Stores the identifier of this installation, which is never missing or empty. It is made at the
  /// first start and kept in the user defaults; processes that share these agree on one, even when
  /// they start at the same moment.
  void initSDKID();
  /// Stores the advertising identifier once more, as the normalised one; the installation's where
  /// the former is unknown or all zeros.
  void initNormalizedID();

  /// Chooses the pool, null for the engine's default one, and calls userAgent().
  void initUserAgentWithProcessPool(std::shared_ptr<QVPlatform::ProcessPool> pool);
  /// Announces the user agent, with kQVNotification_UserAgentAvailable, on the calling thread if it
  /// is known. If not, has a web view made and its script started on the main thread, and returns
  /// when that is done: a main thread that waits for the caller deadlocks. The answer is stored and
  /// announced on the main thread later; without an answer nothing happens, and the next call tries
  /// again.
  void userAgent();

  void addData(const std::shared_ptr<QVDynamicStore>& other) override;
  void addDataWithValue(const QVPlatform::String& key, const QVPlatform::Value& value) override;
  QVPlatform::Value getData(const QVPlatform::String& key) const override;
  QVPlatform::Value removeData(const QVPlatform::String& key) override;
  void clearData() override;

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override;

  /// Null in a bare instance.
  std::shared_ptr<QVDynamicStore> dynamicStore() const { return dynamicStore_.get(); }
  void setDynamicStore(std::shared_ptr<QVDynamicStore> store);
  /// Null in a bare instance.
  using QVParticipant::senderDelegate;
  using QVParticipant::setSenderDelegate;
  /// Whether the application goes on sending hits in the background: then OnBackground and
  /// OnForeground hold, save and restore nothing. It saves no hit by itself, so that what waits
  /// when the process ends is lost: QVNetworkManager::enableRunningInBackground() saves. False
  /// after init(); the core only reads it.
  bool enableSDKInBG() const noexcept { return enableSDKInBG_; }
  void setEnableSDKInBG(bool isOn) noexcept { enableSDKInBG_ = isOn; }
  /// The pool for the web view; null for the engine's default one.
  std::shared_ptr<QVPlatform::ProcessPool> pool() const { return pool_.get(); }
  void setPool(std::shared_ptr<QVPlatform::ProcessPool> pool);
  /// The web view that was asked last, or null; kept until the next one.
  std::shared_ptr<QVPlatform::WebView> uaWebView() const { return uaWebView_.get(); }
  void setUaWebView(std::shared_ptr<QVPlatform::WebView> webView);

 private:
  void initialise();
  void askWebViewForUserAgent();
  void announceUserAgent(const QVPlatform::Value& userAgent);

  static std::atomic<std::int32_t> QV_INIT_STATE;

  QVPlatform::Property<std::shared_ptr<QVDynamicStore>> dynamicStore_;
  std::atomic<bool> enableSDKInBG_{false};
  QVPlatform::Property<std::shared_ptr<QVPlatform::ProcessPool>> pool_;
  QVPlatform::Property<std::shared_ptr<QVPlatform::WebView>> uaWebView_;
};
