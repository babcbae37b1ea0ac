#include <QVCore/qvcore.h>

#include <QVCore/Internal/QVCInterface.h>
#include <QVCore/Internal/QVJSONText.h>
#include <QVCore/QVConfigurationFile.h>
#include <QVCore/QVConfigurationFileFactory.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreInitialisation.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVCore_vers.h>
#include <QVCore/QVDebug.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/CallGate.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Foundation/ClassRegistry.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <utility>

using namespace QVCInterface;
using QVPlatform::Application;
using QVPlatform::MainQueue;
using QVPlatform::String;
using QVPlatform::Value;

namespace {

class AssumedNetwork final : public QVPlatform::ReachabilitySource {
 public:
  bool getFlags(const QVPlatform::ReachabilityTarget&,
                QVPlatform::NetworkReachabilityFlags* flags) override {
    *flags = QVPlatform::kSCNetworkReachabilityFlagsReachable;
    return true;
  }
  std::shared_ptr<void> subscribe(const QVPlatform::ReachabilityTarget&, Changed changed) override {
    return std::make_shared<Changed>(std::move(changed));
  }
};

/// What is at the path in the configuration; nil if there is no such configuration.
Value configurationValue(const char* name, const char* path) {
  const String key(name);
  const String keys(path);
  if (key.isNull() || (path && keys.isNull())) return nullptr;
  const auto file = QVConfigurationFileFactory::sharedInstance()->getConfigurationFile(key);
  if (!file) return nullptr;
  const Value json = file->getJSONDictionary();
  return path && !json.isNil() ? file->getJsonLeafFromPath(json, keys) : json;
}

/// A sink in C, for as long as no other one has taken its place. The log keeps it for ever.
struct Sink {
  Sink(qv_log_sink itsFunction, void* itsUser) : function(itsFunction), user(itsUser) {}

  void take(const QVPlatform::LogLine& line) {
    const char* const shown = line.text.isNull() ? "(null)" : line.text.UTF8String();
    gate.enter([&] { function(shown, line.level.value_or(QV_NO_LEVEL), user); });
  }

  QVPlatform::CallGate gate;
  const qv_log_sink function;
  void* const user;
};

constinit std::atomic<Sink*> currentSink{nullptr};

int getSetting(int setting, int* value) {
  switch (setting) {
    case QV_LOG_LEVEL:
      return *value = QVDebug::getLogLevel(), QV_OK;
    case QV_LOG_NOTIFICATIONS:
      return *value = QVLogger::sharedInstance()->debugVerboseNotificationLog(), QV_OK;
    case QV_BLOCK_HITS:
      return *value = QVDebug::areHitBlocked(), QV_OK;
    case QV_OWN_WEB_ENGINE:
      return *value = QVDebug::shouldUseCustomProcessPool(), QV_OK;
    case QV_SEND_IN_BACKGROUND:
      return *value = QVCoreVariables::sharedInstance()->enableSDKInBG(), QV_OK;
    default:
      return QV_INVALID;
  }
}

int setSetting(int setting, int value) {
  switch (setting) {
    case QV_LOG_LEVEL:
      return QVDebug::setDebugLevel(value), QV_OK;
    case QV_LOG_NOTIFICATIONS:
      return QVDebug::setNotificationLog(value != 0), QV_OK;
    case QV_BLOCK_HITS:
      return QVDebug::blockHits(value != 0), QV_OK;
    case QV_OWN_WEB_ENGINE:
      return QVDebug::useCustomWKProcessPool(value != 0), QV_OK;
    case QV_SEND_IN_BACKGROUND:
      return QVCoreVariables::sharedInstance()->setEnableSDKInBG(value != 0), QV_OK;
    default:
      return QV_INVALID;
  }
}

}  // namespace

const char* qv_version() { return kQVCoreVersion.UTF8String(); }

void qv_free(char* text) { std::free(text); }

// Before the start.

int qv_set_identifier(const char* identifier) {
  return doneWithOptional(identifier, [](const String& text) { Application::setIdentifier(text); });
}

int qv_set_container_directory(const char* directory) {
  return doneWithOptional(directory,
                          [](const String& text) { Application::setContainerDirectory(text); });
}

int qv_set_resource_directory(const char* directory) {
  return doneWithOptional(directory,
                          [](const String& text) { Application::setResourceDirectory(text); });
}

int qv_assume_network() {
  return done(
      [] { QVPlatform::NetworkReachability::setSource(std::make_shared<AssumedNetwork>()); });
}

int qv_expect_consent() {
  return done([] { QVPlatform::ClassRegistry::registerClass("QVMobilePrivacy"); });
}

int qv_start() {
  return done([] { std::make_shared<QVCoreInitialisation>()->init(); });
}

int qv_set(int setting, int value) {
  return done([&] { return setSetting(setting, value); });
}

int qv_get(int setting, int* value) {
  return value ? done([&] { return getSetting(setting, value); }) : QV_INVALID;
}

// Hits.

int qv_save() {
  return done([] { QVNetworkManager::sharedInstance()->saveAllHits(); });
}

int qv_save_at_each_change() {
  return done([] { QVNetworkManager::sharedInstance()->enableRunningInBackground(); });
}

int qv_shutdown(int milliseconds, int* saved) {
  if (milliseconds < 0) return QV_INVALID;
  return done([&] {
    const auto result =
        QVNetworkManager::sharedInstance()->shutdownWithin(std::chrono::milliseconds(milliseconds));
    if (saved) *saved = static_cast<int>(result.savedHits.value_or(0));
    return !result.savedHits ? QV_FAILED : result.isIdle ? QV_OK : QV_UNDER_WAY;
  });
}

int qv_erase_everything() {
  return done([] { return QVCoreInitialisation::eraseEverything() ? QV_OK : QV_FAILED; });
}

int qv_wait_for_user_agent() {
  return done([] { QVNetworkManager::sharedInstance()->waitForUserAgent(); });
}

int qv_add_partner(const char* partner) {
  return doneWith(partner, [](const String& name) {
    const auto listener = QVNetworkManager::sharedInstance()->listenerDelegate();
    const bool isHeard = listener && listener->listen(kQVNotification_HTTPPartnerRequest + name);
    return isHeard ? QV_OK : QV_FAILED;
  });
}

int qv_set_queue_limits(int seconds, int hits) {
  if (seconds < 0 || hits < 0) return QV_INVALID;
  return done([&] {
    QVNetworkManager::sharedInstance()
        ->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(seconds, hits);
  });
}

// Variables.

char* qv_variable(const char* name) {
  return copyOf([&] { return QVCoreVariables::sharedInstance()->getData(name).stringValue(); });
}

int qv_set_variable(const char* name, const char* value) {
  return doneWith(name, [&](const String& key) {
    return doneWithOptional(value, [&](const String& text) {
      const auto variables = QVCoreVariables::sharedInstance();
      text.isNull() ? void(variables->removeData(key)) : variables->addDataWithValue(key, text);
    });
  });
}

// Configurations.

int qv_set_account(int site, int container) {
  return done([&] {
    QVConfigurationFileFactory::sharedInstance()->initWithSiteIDAndContainerID(site, container);
  });
}

int qv_set_configuration_host(const char* host) {
  return doneWithOptional(
      host, [](const String& text) { QVConfigurationFile::setConfigurationHost(text); });
}

int qv_add_configuration(const char* name, const char* version_path, const char* url) {
  return doneWith(name, [&](const String& key) {
    return doneWithOptional(version_path, [&](const String& path) {
      return doneWithOptional(url, [&](const String& place) {
        QVConfigurationFileFactory::sharedInstance()->addConfigurationFileWithVersionPathForURL(
            key, path, place);
      });
    });
  });
}

char* qv_configuration_json(const char* name, const char* path) {
  return copyOf([&] {
    const Value value = configurationValue(name, path);
    return value.isNil() ? String() : QVJSONText(value);
  });
}

char* qv_configuration_text(const char* name, const char* path) {
  return copyOf([&] { return configurationValue(name, path).stringValue(); });
}

// The main queue.

int qv_main_queue_descriptor() {
  return resultOf([] { return MainQueue::mainQueue().fileDescriptor(); }, -1);
}

void qv_main_queue_drain() {
  done([] { MainQueue::mainQueue().drain(); });
}

void qv_main_queue_run() {
  done([] { MainQueue::mainQueue().run(); });
}

void qv_main_queue_stop() {
  done([] { MainQueue::mainQueue().stop(); });
}

int qv_set_log_sink(qv_log_sink sink, void* user) {
  return done([&] {
    const auto next = sink ? std::make_shared<Sink>(sink, user) : nullptr;
    QVPlatform::LogSink take;
    if (next) take = [next](const QVPlatform::LogLine& line) { next->take(line); };
    if (!QVPlatform::setLogSink(std::move(take))) return QV_FAILED;
    if (Sink* const earlier = currentSink.exchange(next.get())) earlier->gate.close();
    return QV_OK;
  });
}

int qv_log(const char* line, int level) {
  return doneWith(line, [&](const String& text) {
    QVLogger::sharedInstance()->logMessageWithLevel(text, level);
  });
}
