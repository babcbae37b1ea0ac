#pragma once

#include <QVCore/Export.h>
#include <QVCore/QVParticipant.h>
#include <QVPlatform/Files/Bundle.h>
#include <QVPlatform/Foundation/Property.h>
#include <QVPlatform/Foundation/Value.h>

#include <atomic>
#include <cstdint>
#include <memory>

/// One remote JSON configuration, known by its name, with an offline copy of its text.
///
/// The offline copy lies in the user defaults. It begins as the file "<name>.json" that is shipped
/// with the application; the configuration is downloaded each time that one of the four setters
/// gives the file its identity, and a text replaces the offline copy only if its version number is
/// higher. A new object is bare: it is usable after one of those setters. Normally the
/// QVConfigurationFileFactory makes it.
///
/// Limits: a text of more than 32 MiB or with more than 512 containers in each other is not read
/// (QVPlatform::JSONDocument); a shipped file may have 64 MiB. A text that cannot be read has no
/// values and version 0. It becomes the offline copy all the same when there is none yet, and stays
/// until a text with a higher version comes; only one of more than 32 MiB does not, with a log line
/// at level 4.
///
/// Threads: identity is given on one thread, and before the readers are used; the readers may be
/// called from any thread. An answer from the network is handled on the network manager's thread.
/// Lifetime: held by std::shared_ptr. It may be released on any thread, also while an answer is
/// being handled on another.
class QVCORE_EXPORT QVConfigurationFile : public QVPlatform::Object,
                                          public IQVEventListenerDelegate,
                                          public IQVEventSenderDelegate,
                                          public QVParticipant {
 public:
  /// Host, or host:port, that configurations without a URL of their own are downloaded from. The
  /// default, "configuration.example.invalid", is a placeholder that no name server knows: an
  /// application that uses such configurations sets its own, before it registers them. Null sets
  /// the placeholder again. Callable from any thread.
  static QVPlatform::String configurationHost();
  static void setConfigurationHost(QVPlatform::String host);

  ~QVConfigurationFile() override;

  // Identity. Each setter seeds the offline copy and asks for a download before it returns; the
  // answer comes later. Called again, it registers once more with the network manager, which then
  // downloads once for each registration.

  /// `versionPath` is where the version number is in the JSON, see getJsonLeafFromPath(); null for
  /// none, and then nothing ever replaces the first copy. A null `url` stands for
  /// "https://<configurationHost()>/mobile/<site>/<file>/<name>.json".
  void setSiteIDFileIDFileNameVersionPathAndURL(std::int32_t site, std::int32_t file,
                                                const QVPlatform::String& name,
                                                const QVPlatform::String& versionPath,
                                                const QVPlatform::String& url);
  void setSiteIDFileIDFileNameAndVersionPath(std::int32_t site, std::int32_t file,
                                             const QVPlatform::String& name,
                                             const QVPlatform::String& versionPath);
  void setSiteIDFileIDAndFileName(std::int32_t site, std::int32_t file,
                                  const QVPlatform::String& name);
  /// With 0 for both numbers.
  void setFilenameVersionPathAndURL(const QVPlatform::String& name,
                                    const QVPlatform::String& versionPath,
                                    const QVPlatform::String& url);

  // Readers. What they cannot find or read they log, at level 4. They make values for the caller,
  // so they throw std::bad_alloc, and nothing else, when memory runs out. All other operations
  // throw nothing: the console log tells what was left undone.

  /// The offline copy, or null.
  QVPlatform::String getFullJSON() const;
  /// The offline copy as a Dictionary or Array; nil if there is none or it is not JSON.
  QVPlatform::Value getJSONDictionary() const;
  /// The same of any text. A text that is not JSON is not logged here.
  QVPlatform::Value getJSONDictionaryFromString(const QVPlatform::String& text) const;
  /// The value in the offline copy at a path of keys with "/" between them; "0" if the last key is
  /// missing, QVPlatform::Null for null. A key in between that is missing is passed over: where "a"
  /// has no "x", "a/x/b" finds what "a/b" does. Arrays have no keys. Makes no value but the result.
  QVPlatform::Value getJsonLeafFromPath(const QVPlatform::String& path) const;
  /// The same in `json` instead of the offline copy.
  QVPlatform::Value getJsonLeafFromPath(const QVPlatform::Value& json,
                                        const QVPlatform::String& path) const;
  /// The number at versionPath() (Value::intValue()); 0 if there is none.
  std::int32_t getVersionFromJSONObject(const QVPlatform::Value& json) const;

  // Update.

  /// Stores the shipped text if there is no offline copy, or as a newer version of it.
  void preSaveOfflineJSON();
  /// Posts the request for the configuration, on the calling thread. The answer comes to
  /// onNotificationReceived(); nothing comes if there is no newer text or the download failed.
  void downloadConfigurationUpdate();
  /// Handles the answer: its text becomes the offline copy if there is none, or as a newer version.
  void onNotificationReceived(const QVPlatform::Notification& notification) override;
  /// Makes the new text the offline copy if its version is higher than the old one's, and calls
  /// specificUpdateAnd() then. A text that cannot be read counts as version 0.
  void updateConfigurationFromOldConfToNew(const QVPlatform::String& oldText,
                                           const QVPlatform::String& newText);
  /// For specialised configurations: called each time that a newer text has been stored, on the
  /// thread that stored it. The object is kept alive meanwhile. What it returns is ignored; what it
  /// throws is stopped with a line on the console log, and the update goes on. Here it does nothing
  /// and returns false.
  virtual bool specificUpdateAnd(const QVPlatform::String& oldText,
                                 const QVPlatform::String& newText);

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override;

  // Properties. In a bare object they are 0 or null. Those that the identity setters fill in are
  // rarely set one by one: nothing is registered or downloaded for it.

  std::int32_t siteID() const noexcept { return siteID_; }
  void setSiteID(std::int32_t site) noexcept { siteID_ = site; }
  std::int32_t fileID() const noexcept { return fileID_; }
  void setFileID(std::int32_t file) noexcept { fileID_ = file; }
  /// The higher one of the two versions last compared; 0 before.
  std::int32_t version() const noexcept { return version_; }
  void setVersion(std::int32_t version) noexcept { version_ = version; }
  /// The configuration's name.
  QVPlatform::String offlineName() const { return offlineName_.get(); }
  void setOfflineName(QVPlatform::String name) { offlineName_.set(std::move(name)); }
  /// User-defaults key of the offline copy.
  QVPlatform::String sharedName() const { return sharedName_.get(); }
  void setSharedName(QVPlatform::String name) { sharedName_.set(std::move(name)); }
  QVPlatform::String baseURL() const { return baseURL_.get(); }
  void setBaseURL(QVPlatform::String url) { baseURL_.set(std::move(url)); }
  QVPlatform::String versionPath() const { return versionPath_.get(); }
  void setVersionPath(QVPlatform::String path) { versionPath_.set(std::move(path)); }
  /// Where the shipped text is; null for the main bundle. Set before the identity is given.
  std::shared_ptr<QVPlatform::Bundle> bundle() const { return bundle_.get(); }
  void setBundle(std::shared_ptr<QVPlatform::Bundle> bundle) { bundle_.set(std::move(bundle)); }

 private:
  struct Reading;

  void handle(const QVPlatform::Notification& notification);
  void useShippedText();
  void update(const QVPlatform::String& oldText, const QVPlatform::String& newText);
  void saveFirstCopy(const QVPlatform::Value& text);
  void registerListeners();
  Reading readVersion(const QVPlatform::String& text) const;
  void logIfUnreadable(const QVPlatform::String& text, const QVPlatform::String& error) const;

  std::atomic<std::int32_t> siteID_{0};
  std::atomic<std::int32_t> fileID_{0};
  std::atomic<std::int32_t> version_{0};
  QVPlatform::Property<QVPlatform::String> offlineName_;
  QVPlatform::Property<QVPlatform::String> sharedName_;
  QVPlatform::Property<QVPlatform::String> baseURL_;
  QVPlatform::Property<QVPlatform::String> versionPath_;
  QVPlatform::Property<std::shared_ptr<QVPlatform::Bundle>> bundle_;
};
