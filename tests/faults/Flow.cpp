#include "tests/faults/Flow.h"

Flow::Flow(std::string container) : container_(std::move(container)) {
  Application::setContainerDirectory(container_);
  NetworkReachability::setSource(network_);
  QVDebug::setDebugLevel(6);
  QVDebug::useCustomWKProcessPool(true);  // no user agent is sought
}

void Flow::expect(bool isTrue, const std::string& what) {
  if (!isTrue) complaints_ += what + "\n";
}

void Flow::start(QVTest::ScriptedReachability::Flags flags) {
  network_->change(flags);
  kit_->init();
}

void Flow::post(const std::string& url, const std::string& body) {
  NotificationCenter::defaultCenter()->postNotification(
      Notification(kQVNotification_HTTPRequest, nullptr,
                   Dictionary{{kQVUserInfo_URLKey, url}, {kQVUserInfo_POSTData, body}}));
}

std::string Flow::pathOfHits() const {
  return container_ + "/Library/QVPrivateDocuments/offlineHits";
}

void Flow::leave(const Hits& hits) const {
  std::vector<Value> list;
  for (const auto& url : hits) list.emplace_back(Dictionary{{kQVUserInfo_URLKey, url}, {"ID", 1}});
  KeyedArchiver archiver;
  archiver.encodeObjectForKey(Array(std::move(list)), kQVFileOfflineHits);
  std::filesystem::create_directories(std::filesystem::path(pathOfHits()).parent_path());
  putFile(pathOfHits(), archiver.finishEncoding().view());
}

void Flow::saveAndExpect(const Hits& hits) {
  QVNetworkManager::sharedInstance()->saveAllHits();
  expect(hitsIn(pathOfHits()) == hits, "the next save does not save what waits");
}

Hits Flow::hitsIn(const std::string& path) {
  Hits hits;
  KeyedUnarchiver archive(FileManager::contentsAtPath(path, 1U << 20));
  const Value list = archive.decodeObjectForKey(kQVFileOfflineHits);
  for (const Value& hit : list.array().values()) {
    hits.emplace(hit.dictionary().get(kQVUserInfo_URLKey).string().view());
  }
  return hits;
}

Hits Flow::waitingHits() {
  Hits hits;
  const auto queue = QVNetworkManager::sharedInstance()->operationQueue();
  for (const auto& operation : queue->operations()) {
    if (operation->isCancelled()) continue;
    const Dictionary data = std::static_pointer_cast<QVHTTPOperation>(operation)->userInfo();
    hits.emplace(data.get(kQVUserInfo_URLKey).string().view());
  }
  return hits;
}

Hits Flow::hitsOfNextRun(const std::string& container) {
  class NextRun : public Flow {
   public:
    using Flow::Flow;
    void prepare() override { start(); }
    void run() override {}
    void check() override {}
  };
  NextRun(container).prepare();
  return waitingHits();
}
