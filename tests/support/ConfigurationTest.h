#pragma once

#include "CoreTest.h"
#include "Test.h"

namespace QVTest {

/// A process whose application ships what the test says.
class ConfigurationTest : public CoreTest {
 protected:
  ConfigurationTest() {
    std::filesystem::create_directory(resources());
    QVPlatform::Application::setResourceDirectory(resources().string());
  }

  std::filesystem::path resources() const { return container.path() / "Resources"; }

  /// Ships "<name>.json" with the application.
  void ship(const std::string& name, const std::string& text) const {
    putFile(resources() / (name + ".json"), text);
  }

  static void save(const std::string& name, const QVPlatform::String& text) {
    QVUserDefaults::saveInfoToUserDefaultsForLabel(text, "configuration_" + name);
  }
  /// The offline copy as it lies in the user defaults; null if there is none.
  static QVPlatform::String saved(const std::string& name) {
    return QVUserDefaults::retrieveInfoFromUserDefaults("configuration_" + name).string();
  }

  /// A file that knows its name, and has neither listeners nor a download.
  template <class File = QVConfigurationFile>
  static std::shared_ptr<File> bareFile(const std::string& name,
                                        const QVPlatform::String& versionPath = nullptr) {
    auto file = std::make_shared<File>();
    file->setOfflineName(name);
    file->setSharedName("configuration_" + name);
    file->setVersionPath(versionPath);
    return file;
  }

  /// Whether all configurations that were asked for have come, or have failed to.
  static bool waitForDownloads() {
    const auto queue = QVNetworkManager::sharedInstance()->consentQueue();
    return runMainQueueUntil([&] { return queue->operationCount() == 0; });
  }
};

/// A specialised configuration whose hook remembers what it was called with and what the file held
/// then, and may throw.
class SpecialisedFile : public QVConfigurationFile {
 public:
  struct Update {
    QVPlatform::String oldText;
    QVPlatform::String newText;
    QVPlatform::String savedText;
    std::int32_t version;
    bool operator==(const Update&) const = default;
  };

  bool specificUpdateAnd(const QVPlatform::String& oldText,
                         const QVPlatform::String& newText) override {
    updates.push_back({oldText, newText, getFullJSON(), version()});
    if (isThrowing) throw std::runtime_error("the hook");
    return true;
  }

  std::vector<Update> updates;
  bool isThrowing = false;
};

}  // namespace QVTest
