#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVConfigurationFile.h>
#include <QVCore/QVEventListener.h>
#include <QVCore/QVSingleton.h>
#include <QVPlatform/Files/Bundle.h>
#include <QVPlatform/Foundation/Dictionary.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Foundation/String.h>

#include <atomic>
#include <cstdint>
#include <memory>

/// The registry of configurations: makes them, with the account's numbers, and keeps them by name.
///
/// It comes into being when it is first asked for, normally by a module that registers its
/// configurations. What makes a file seeds its offline copy and asks for its download before it
/// returns (QVConfigurationFile).
///
/// Threads: every operation may be called from any thread; still, registering one name on two
/// threads at once makes two files.
class QVCORE_EXPORT QVConfigurationFileFactory : public QVSingleton {
 public:
  static std::shared_ptr<QVConfigurationFileFactory> sharedInstance();

  /// See QVSingleton, with one difference: initialisation of this class never counts as done, so a
  /// plain init() after the first one, on whatever instance, never returns. Both return the
  /// receiver.
  std::shared_ptr<QVConfigurationFileFactory> init();
  /// Forgets all configurations and bundles; the numbers stay. Returns also when another thread
  /// does the same at once.
  std::shared_ptr<QVConfigurationFileFactory> reinit();
  /// Sets both numbers for the files made from now on; initialises nothing.
  void initWithSiteIDAndContainerID(std::int32_t site, std::int32_t container);

  // Registration. A null or empty name does nothing. When memory is short, the console log says so,
  // and nothing is registered.

  /// Makes a file without a version path and registers it, in place of an earlier one of that name.
  void addConfigurationFile(const QVPlatform::String& name);
  /// The same, and lets the listener listen as below.
  void addConfigurationFileForListener(const QVPlatform::String& name,
                                       const std::shared_ptr<QVEventListener>& listener);
  /// Registers a file that was made elsewhere, as it is, in place of an earlier one of that name; a
  /// null file does nothing. A listener that is exactly a QVEventListener, and not of a class
  /// derived from it, then listens for "QVNotification: Configuration changed@<name>", once more
  /// with each call.
  void addConfigurationFileFromFileForListener(const QVPlatform::String& name,
                                               const std::shared_ptr<QVConfigurationFile>& file,
                                               const std::shared_ptr<QVEventListener>& listener);
  /// Makes a file with a version path and registers it, in place of an earlier one of that name.
  void addConfigurationFileWithVersionPath(const QVPlatform::String& name,
                                           const QVPlatform::String& versionPath);
  /// The same with a URL of its own, or null; an earlier one of that name stays, and nothing is
  /// made.
  void addConfigurationFileWithVersionPathForURL(const QVPlatform::String& name,
                                                 const QVPlatform::String& versionPath,
                                                 const QVPlatform::String& url);
  /// The file of that name, or null.
  std::shared_ptr<QVConfigurationFile> getConfigurationFile(const QVPlatform::String& name) const;
  /// Where files of that name that are made from now on find their shipped text. A null name or
  /// bundle is ignored.
  void setBundleForConfiguration(const std::shared_ptr<QVPlatform::Bundle>& bundle,
                                 const QVPlatform::String& name);

  // Properties. The dictionaries are null in a bare instance.

  std::int32_t siteID() const noexcept { return siteID_; }
  void setSiteID(std::int32_t site) noexcept { siteID_ = site; }
  std::int32_t containerID() const noexcept { return containerID_; }
  void setContainerID(std::int32_t container) noexcept { containerID_ = container; }
  /// The files by name, and the bundles by name.
  QVPlatform::Dictionary configurations() const { return configurations_.get(); }
  void setConfigurations(QVPlatform::Dictionary configurations);
  QVPlatform::Dictionary bundles() const { return bundles_.get(); }
  void setBundles(QVPlatform::Dictionary bundles);

 private:
  void forgetAll();
  std::shared_ptr<QVConfigurationFile> makeFile(const QVPlatform::String& name,
                                                const QVPlatform::String& versionPath,
                                                const QVPlatform::String& url) const;
  void addFile(const QVPlatform::String& name, const QVPlatform::String& versionPath,
               const QVPlatform::String& url);

  static std::atomic<std::int32_t> QV_INIT_STATE;

  std::atomic<std::int32_t> siteID_{0};
  std::atomic<std::int32_t> containerID_{0};
  QVPlatform::Property<QVPlatform::Dictionary> configurations_;
  QVPlatform::Property<QVPlatform::Dictionary> bundles_;
};
