#pragma once

#include "CoreTest.h"

namespace QVTest {

/// An object that does something while it is archived: in the middle of a save.
class Archived : public Object, public Coding {
 public:
  explicit Archived(std::function<void()> itsAction = [] {}) : action(std::move(itsAction)) {}
  void encodeWithCoder(KeyedArchiver&) const override { action(); }
  void initWithCoder(KeyedUnarchiver&) override {}

  const std::function<void()> action;
};

/// Waiting hits in the file and back. The network is down, so that hits wait.
class OfflineHitsTest : public CoreTest {
 protected:
  OfflineHitsTest() {
    network->change(0);
    QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
  }

  static void request(const Dictionary& userInfo) { post(kQVNotification_HTTPRequest, userInfo); }
  String path() const {
    return (container.path() / "Library/QVPrivateDocuments/offlineHits").string();
  }
  std::vector<Value> saved() const {
    KeyedUnarchiver archive(FileManager::contentsAtPath(path(), 1U << 20));
    EXPECT_TRUE(archive.isValid());
    return archive.decodeObjectForKey("offlineHits").array().values();
  }
  void writeFile(const std::string& bytes) const {
    QVLogger::sharedInstance()->getPrivatePathToFile("offlineHits");
    ASSERT_TRUE(FileManager::writeAtomically(bytes, path()));
  }
  void writeHits(const Array& hits) const {
    KeyedArchiver archiver;
    archiver.encodeObjectForKey(hits, "offlineHits");
    writeFile(std::string(archiver.finishEncoding().view()));
  }
  static std::vector<Value> queued() {
    std::vector<Value> hits;
    for (const auto& operation :
         QVNetworkManager::sharedInstance()->operationQueue()->operations()) {
      hits.emplace_back(std::static_pointer_cast<QVHTTPOperation>(operation)->userInfo());
    }
    return hits;
  }
  static std::vector<Value> idsOf(const std::vector<Value>& hits) {
    std::vector<Value> ids;
    ids.reserve(hits.size());
    for (const Value& hit : hits) ids.push_back(hit.dictionary().get("ID"));
    return ids;
  }
  static std::vector<Value> queuedIDs() { return idsOf(queued()); }
  static Value hit(const String& url, const Value& id) {
    return Dictionary{{"url", url}, {"ID", id}};
  }
  /// What a listener does at each refused hit, in the middle of a restore.
  static void atRefusal(const std::function<void()>& action) {
    NotificationCenter::defaultCenter()->addObserver(
        &refusals, [action](const auto&) { action(); }, kQVNotification_HTTPRequestError);
  }
  static inline int refusals = 0;

  static std::shared_ptr<OperationQueue> suspendedQueue() {
    auto queue = std::make_shared<OperationQueue>();
    queue->setSuspended(true);
    return queue;
  }
  /// Names beside the file, its own included.
  std::ptrdiff_t fileCount() const {
    std::error_code ignored;  // the directory may not have been made yet
    const auto directory = std::filesystem::path(path().view()).parent_path();
    return std::distance(std::filesystem::directory_iterator(directory, ignored), {});
  }
};

}  // namespace QVTest
