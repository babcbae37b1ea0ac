#include <QVCore/QVConfigurationFile.h>

#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVLogLevel.h>
#include <QVCore/QVLogger.h>
#include <QVCore/QVNetworkManager.h>
#include <QVCore/QVUserDefaults.h>
#include <QVPlatform/Archives/JSONDocument.h>
#include <QVPlatform/Archives/JSONSerialization.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <initializer_list>
#include <string_view>
#include <utility>

using QVPlatform::Bundle;
using QVPlatform::callOut;
using QVPlatform::Dictionary;
using QVPlatform::FileManager;
using QVPlatform::JSONDocument;
using QVPlatform::JSONSerialization;
using QVPlatform::Lasting;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::Property;
using QVPlatform::String;
using QVPlatform::stringWithFormat;
using QVPlatform::Value;

namespace {

constexpr const char* kPlaceholderHost = "configuration.example.invalid";

Property<String>& host() {
  struct Shared {
    Property<String> host{kPlaceholderHost};
  };
  return Lasting<Shared>::object().host;
}

void log(std::string_view format, std::initializer_list<Value> arguments, std::int32_t level) {
  QVLogger::sharedInstance()->logMessageWithLevel(stringWithFormat(format, arguments), level);
}

/// One of the notification names or keys that belong to one configuration.
String nameFor(const String& prefix, const String& configuration) {
  return stringWithFormat("%@%@", {prefix, configuration});
}

String savedText(const String& key) {
  return QVUserDefaults::retrieveInfoFromUserDefaults(key).string();
}

void listen(const std::shared_ptr<QVEventListener>& listener, std::initializer_list<String> names) {
  if (!listener) return;
  for (const String& name : names) listener->listen(name);
}

/// Walks through values as JSONDocument does through its text.
class ValueBranch {
 public:
  explicit ValueBranch(Value value) : value_(std::move(value)) {}

  bool enterMember(std::string_view key) {
    Value member = value_.dictionary().get(String(key));
    if (member.isNil()) return false;
    value_ = std::move(member);
    return true;
  }
  Value value() const { return value_; }

 private:
  Value value_;
};

/// A key that is missing leaves the branch where it is, and the walk goes on, on purpose: only the
/// last key decides whether something was found.
template <class Branch>
Value leaf(Branch& branch, const String& path) {
  bool isFound = false;
  std::string_view rest = path.view();
  for (bool isMore = !path.isNull(); isMore;) {
    const auto slash = rest.find('/');
    const auto key = rest.substr(0, slash);
    isMore = slash != std::string_view::npos;
    if (isMore) rest.remove_prefix(slash + 1);
    isFound = branch.enterMember(key);
    if (!isFound) log("Error getting branch in JSON: %@", {String(key)}, QVLogLevelConfigurations);
  }
  return isFound ? branch.value() : Value("0");
}

}  // namespace

/// What a text says about its version.
struct QVConfigurationFile::Reading {
  std::int32_t version;
  bool isReadable;
};

String QVConfigurationFile::configurationHost() { return host().get(); }

void QVConfigurationFile::setConfigurationHost(String name) {
  host().set(name.isNull() ? String(kPlaceholderHost) : std::move(name));
}

QVConfigurationFile::~QVConfigurationFile() {
  end();
  NotificationCenter::defaultCenter()->removeObserver(this);
}

void QVConfigurationFile::setSiteIDFileIDFileNameVersionPathAndURL(std::int32_t site,
                                                                   std::int32_t file,
                                                                   const String& name,
                                                                   const String& versionPath,
                                                                   const String& url) {
  callOut([&] {
    setSiteID(site);
    setFileID(file);
    setOfflineName(name);
    setVersionPath(versionPath);
    setSharedName(nameFor(kQVConfigurationFilesPrefix, name));
    begin(this, std::make_shared<QVEventSender>()->init());
    begin(this, std::make_shared<QVEventListener>()->init());
    registerListeners();
    setBaseURL(!url.isNull() ? url
                             : stringWithFormat("https://%@/mobile/%@/%@/%@.json",
                                                {configurationHost(), site, file, name}));
    preSaveOfflineJSON();
    downloadConfigurationUpdate();
  });
}

void QVConfigurationFile::setSiteIDFileIDFileNameAndVersionPath(std::int32_t site,
                                                                std::int32_t file,
                                                                const String& name,
                                                                const String& versionPath) {
  setSiteIDFileIDFileNameVersionPathAndURL(site, file, name, versionPath, nullptr);
}

void QVConfigurationFile::setSiteIDFileIDAndFileName(std::int32_t site, std::int32_t file,
                                                     const String& name) {
  setSiteIDFileIDFileNameAndVersionPath(site, file, name, nullptr);
}

void QVConfigurationFile::setFilenameVersionPathAndURL(const String& name,
                                                       const String& versionPath,
                                                       const String& url) {
  setSiteIDFileIDFileNameVersionPathAndURL(0, 0, name, versionPath, url);
}

/// Without a look whether the names are registered already: a file that gets another identity is
/// heard, and downloaded, once more for each, on purpose.
void QVConfigurationFile::registerListeners() {
  const String request = nameFor(kQVNotification_ConfigurationRequest, offlineName());
  const String response = nameFor(kQVNotification_ConfigurationResponse, offlineName());
  const String changed = nameFor(kQVNotification_ConfigurationChanged, offlineName());
  listen(listenerDelegate(), {response});
  listen(QVNetworkManager::sharedInstance()->listenerDelegate(), {request});
  listen(QVLogger::sharedInstance()->listenerDelegate(), {request, response, changed});
}

String QVConfigurationFile::getFullJSON() const { return savedText(sharedName()); }

Value QVConfigurationFile::getJSONDictionary() const {
  const String text = getFullJSON();
  String error;
  Value json = JSONSerialization::JSONObjectWithText(text, &error);
  logIfUnreadable(text, error);
  return json;
}

Value QVConfigurationFile::getJSONDictionaryFromString(const String& text) const {
  if (text.isEmpty()) log("Error configuration is empty : %@", {text}, QVLogLevelConfigurations);
  return JSONSerialization::JSONObjectWithText(text);
}

Value QVConfigurationFile::getJsonLeafFromPath(const String& path) const {
  const String text = getFullJSON();
  JSONDocument document(text);
  logIfUnreadable(text, document.error());
  return leaf(document, path);
}

Value QVConfigurationFile::getJsonLeafFromPath(const Value& json, const String& path) const {
  ValueBranch branch(json);
  return leaf(branch, path);
}

std::int32_t QVConfigurationFile::getVersionFromJSONObject(const Value& json) const {
  return getJsonLeafFromPath(json, versionPath()).intValue();
}

void QVConfigurationFile::logIfUnreadable(const String& text, const String& error) const {
  if (text.isEmpty()) {
    log("Error configuration is empty : %@", {offlineName()}, QVLogLevelConfigurations);
  } else if (!error.isNull()) {
    log("Error parsing dictionnary from configuration : %@ with error: %@", {offlineName(), error},
        QVLogLevelConfigurations);
  }
}

void QVConfigurationFile::preSaveOfflineJSON() {
  callOut([this] { useShippedText(); });
}

void QVConfigurationFile::useShippedText() {
  const String saved = savedText(sharedName());
  const auto assets = bundle() ? bundle() : Bundle::mainBundle();
  String error;
  const String shipped =
      FileManager::stringWithContentsOfFile(assets->pathForResource(offlineName(), "json"), &error);
  if (!saved.isEmpty()) {
    if (!shipped.isNull()) updateConfigurationFromOldConfToNew(saved, shipped);
  } else if (shipped.isNull()) {
    log("Couldn't find configuration %@ in assets: %@", {offlineName(), error}, QVLogLevelTraffic);
  } else {
    saveFirstCopy(shipped);
  }
}

void QVConfigurationFile::saveFirstCopy(const Value& text) {
  if (text.string().view().size() > JSONDocument::kMaximumSize) {
    log("Configuration %@ is too large to be read", {offlineName()}, QVLogLevelConfigurations);
  } else {
    QVUserDefaults::saveInfoToUserDefaultsForLabel(text, sharedName());
  }
}

void QVConfigurationFile::downloadConfigurationUpdate() {
  callOut([this] {
    log("Checking for update in privacy configuration: %@", {offlineName()}, QVLogLevelTraffic);
    // No response, but a mark: whatever is under this key sends a request to the consent queue.
    const Dictionary userInfo{{kQVUserInfo_URLKey, baseURL()},
                              {kQVUserInfo_ResponseKey, "configuration"}};
    const Notification request(nameFor(kQVNotification_ConfigurationRequest, offlineName()), self(),
                               userInfo);
    if (const auto sender = senderDelegate()) sender->send(request);
  });
}

void QVConfigurationFile::onNotificationReceived(const Notification& notification) {
  callOut([&] { handle(notification); });
}

void QVConfigurationFile::handle(const Notification& notification) {
  if (notification.name() != nameFor(kQVNotification_ConfigurationResponse, offlineName())) return;
  const Value content = notification.userInfo().get(kQVUserInfo_ContentKey);
  const String saved = savedText(sharedName());
  if (saved.isEmpty()) {
    saveFirstCopy(content);
  } else if (!content.string().isNull()) {
    updateConfigurationFromOldConfToNew(saved, content.string());
  }
}

QVConfigurationFile::Reading QVConfigurationFile::readVersion(const String& text) const {
  JSONDocument document(text);
  return {leaf(document, versionPath()).intValue(), document.error().isNull()};
}

void QVConfigurationFile::updateConfigurationFromOldConfToNew(const String& oldText,
                                                              const String& newText) {
  if (oldText != newText) callOut([&] { update(oldText, newText); });
}

void QVConfigurationFile::update(const String& oldText, const String& newText) {
  const Reading before = readVersion(oldText);
  const Reading after = readVersion(newText);
  setVersion(before.version);
  if (before.version < after.version) {
    setVersion(after.version);
    QVUserDefaults::saveInfoToUserDefaultsForLabel(newText, sharedName());
    callOut([&] { specificUpdateAnd(oldText, newText); });
  }
  if (before.isReadable && after.isReadable) return;
  log("Either the offline or the new configuration is not valid", {}, QVLogLevelConfigurations);
  log("Saved one: %@", {oldText}, QVLogLevelConfigurations);
  log("New one: %@", {newText}, QVLogLevelConfigurations);
}

bool QVConfigurationFile::specificUpdateAnd(const String&, const String&) { return false; }

void QVConfigurationFile::changeNotificationCenter(
    const std::shared_ptr<NotificationCenter>& center) {
  moveSender(center);
  moveListener(center);
}
