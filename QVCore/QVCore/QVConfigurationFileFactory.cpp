#include <QVCore/QVConfigurationFileFactory.h>

#include <QVCore/Internal/QVSharedService.h>
#include <QVCore/QVCoreConstants.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/Value.h>

#include <new>
#include <typeinfo>
#include <utility>

using QVPlatform::Bundle;
using QVPlatform::callOut;
using QVPlatform::Dictionary;
using QVPlatform::String;
using QVPlatform::stringWithFormat;

std::atomic<std::int32_t> QVConfigurationFileFactory::QV_INIT_STATE = QVInitStateNever;

std::shared_ptr<QVConfigurationFileFactory> QVConfigurationFileFactory::sharedInstance() {
  return QVSharedInstance<QVConfigurationFileFactory>::get(QV_INIT_STATE);
}

std::shared_ptr<QVConfigurationFileFactory> QVConfigurationFileFactory::init() {
  // QVInitStateDone is never stored, on purpose: after the first time there is reinit().
  QVGuardedInit(QV_INIT_STATE, [this] { forgetAll(); });
  return std::static_pointer_cast<QVConfigurationFileFactory>(self());
}

std::shared_ptr<QVConfigurationFileFactory> QVConfigurationFileFactory::reinit() {
  // Of two threads that ask at once, none waits for the other: the mark would never come.
  QV_INIT_STATE = QVInitStateInProgress;
  if (!callOut([this] { forgetAll(); })) QV_INIT_STATE = QVInitStateRequestedAgain;
  return std::static_pointer_cast<QVConfigurationFileFactory>(self());
}

void QVConfigurationFileFactory::forgetAll() {
  auto configurations = Dictionary::dictionary();
  auto bundles = Dictionary::dictionary();
  setConfigurations(std::move(configurations));
  setBundles(std::move(bundles));
}

void QVConfigurationFileFactory::initWithSiteIDAndContainerID(std::int32_t site,
                                                              std::int32_t container) {
  setSiteID(site);
  setContainerID(container);
}

void QVConfigurationFileFactory::addConfigurationFile(const String& name) {
  addFile(name, nullptr, nullptr);
}

void QVConfigurationFileFactory::addConfigurationFileForListener(
    const String& name, const std::shared_ptr<QVEventListener>& listener) {
  if (name.isEmpty()) return;
  callOut([&] {
    addConfigurationFileFromFileForListener(name, makeFile(name, nullptr, nullptr), listener);
  });
}

void QVConfigurationFileFactory::addConfigurationFileFromFileForListener(
    const String& name, const std::shared_ptr<QVConfigurationFile>& file,
    const std::shared_ptr<QVEventListener>& listener) {
  if (name.isEmpty() || !file) return;
  callOut([&] {
    // Of this very class, and by a name with "@" that is not the one which the file itself has the
    // logger listen for: both on purpose.
    if (const QVEventListener* given = listener.get();
        given && typeid(*given) == typeid(QVEventListener)) {
      listener->listen(stringWithFormat("%@@%@", {kQVNotification_ConfigurationChanged, name}));
    }
    configurations().set(name, file);
  });
}

void QVConfigurationFileFactory::addConfigurationFileWithVersionPath(const String& name,
                                                                     const String& versionPath) {
  addFile(name, versionPath, nullptr);
}

void QVConfigurationFileFactory::addConfigurationFileWithVersionPathForURL(
    const String& name, const String& versionPath, const String& url) {
  if (!getConfigurationFile(name)) addFile(name, versionPath, url);
}

std::shared_ptr<QVConfigurationFile> QVConfigurationFileFactory::getConfigurationFile(
    const String& name) const {
  return std::dynamic_pointer_cast<QVConfigurationFile>(configurations().get(name).object());
}

void QVConfigurationFileFactory::setBundleForConfiguration(const std::shared_ptr<Bundle>& bundle,
                                                           const String& name) {
  if (bundle) callOut([&] { bundles().set(name, bundle); });
}

void QVConfigurationFileFactory::setConfigurations(Dictionary configurations) {
  configurations_.set(std::move(configurations));
}

void QVConfigurationFileFactory::setBundles(Dictionary bundles) {
  bundles_.set(std::move(bundles));
}

std::shared_ptr<QVConfigurationFile> QVConfigurationFileFactory::makeFile(const String& name,
                                                                          const String& versionPath,
                                                                          const String& url) const {
  auto file = std::make_shared<QVConfigurationFile>();
  file->setBundle(std::dynamic_pointer_cast<Bundle>(bundles().get(name).object()));
  file->setSiteIDFileIDFileNameVersionPathAndURL(siteID(), containerID(), name, versionPath, url);
  // The address is what a file gets last: memory was too short for all of its identity.
  if (file->baseURL().isNull()) throw std::bad_alloc();
  return file;
}

void QVConfigurationFileFactory::addFile(const String& name, const String& versionPath,
                                         const String& url) {
  if (name.isEmpty()) return;
  callOut([&] { configurations().set(name, makeFile(name, versionPath, url)); });
}
