#include "tests/faults/Flows.h"

namespace {

const Hits kOld{"http://h/old1", "http://h/old2"};
const Hits kAll{"http://h/new", "http://h/old1", "http://h/old2"};

/// The kit has three hits waiting, of which the file holds two. They are so long that a part of
/// them is written before the rest is encoded.
class Saving : public Flow {
 public:
  using Flow::Flow;
  void prepare() override {
    start();
    for (const auto& url : kOld) post(url, std::string(200'000, 'x'));
    QVNetworkManager::sharedInstance()->saveAllHits();
    post("http://h/new");
  }
  void check() override {
    const Hits saved = hitsIn(pathOfHits());
    expect(saved == kOld || saved == kAll, "neither the old nor the new hits are in the file");
    expect(waitingHits() == kAll, "a hit does not wait any more");
    saveAndExpect(kAll);
    expectedHits_ = kAll;
  }
};

class Save final : public Saving {
 public:
  using Saving::Saving;
  void run() override { QVNetworkManager::sharedInstance()->saveAllHits(); }
};

class CleanEnd final : public Saving {
 public:
  using Saving::Saving;
  void run() override { result_ = QVNetworkManager::sharedInstance()->shutdownWithin(10s); }
  void check() override {
    expect(result_.isIdle, "a hit is under way");
    expect(!result_.savedHits || *result_.savedHits == kAll.size(), "a wrong number of hits");
    expect(!result_.savedHits || hitsIn(pathOfHits()) == kAll,
           "hits are told to be saved and are not");
    Saving::check();
  }

 private:
  QVShutdownResult result_;
};

class Restore final : public Flow {
 public:
  using Flow::Flow;
  void prepare() override {
    start();
    leave(kAll);
  }
  void run() override { QVNetworkManager::sharedInstance()->restoreStockedHit(); }
  void check() override {
    const Hits queued = waitingHits();
    expect(std::includes(kAll.begin(), kAll.end(), queued.begin(), queued.end()),
           "a hit was queued twice");
    if (queued.empty()) {
      run();
      expect(waitingHits() == kAll, "the next restore does not queue all hits");
    }
    QVNetworkManager::sharedInstance()->saveAllHits();
    expectedHits_ = kAll;
  }
};

class Start final : public Flow {
 public:
  using Flow::Flow;
  void prepare() override { leave(kOld); }
  void run() override { start(); }
  void check() override {
    post("http://h/new");
    const auto manager = QVNetworkManager::sharedInstance();
    expect(waitingHits().contains("http://h/new"), "the next hit does not wait");
    expect(manager->reachability()->reachabilityObject() != nullptr, "nobody watches the network");
    expect(!QVCoreVariables::sharedInstance()->getData("#QV_SDK_ID#").isNil(), "no variables");
    manager->saveAllHits();
    expectedHits_ = kAll;
  }
};

/// The kit saves each change.
class SavedPost final : public Flow {
 public:
  using Flow::Flow;
  ~SavedPost() override { NotificationCenter::defaultCenter()->removeObserver(this); }
  void prepare() override {
    start();
    QVNetworkManager::sharedInstance()->enableRunningInBackground();
    for (const auto& url : kOld) post(url);
    NotificationCenter::defaultCenter()->addObserver(
        this, [this](const Notification&) { isRefused_ = true; }, kQVNotification_HTTPRequestError);
  }
  void run() override { NotificationCenter::defaultCenter()->postNotification(hit_); }
  void check() override {
    const Hits saved = hitsIn(pathOfHits());
    const Hits waiting = waitingHits();
    expect(saved == kOld || saved == kAll, "neither the old nor the new hits are in the file");
    expect(waiting == (isRefused_ ? kOld : kAll), "the hit is neither refused nor does it wait");
    post("http://h/next");
    expectedHits_ = waiting;
    expectedHits_->insert("http://h/next");
    expect(hitsIn(pathOfHits()) == expectedHits_, "the next post is not saved");
  }

 private:
  const Notification hit_{kQVNotification_HTTPRequest, nullptr,
                          Dictionary{{kQVUserInfo_URLKey, "http://h/new"}}};
  std::atomic<bool> isRefused_{false};
};

class Erase final : public Flow {
 public:
  using Flow::Flow;
  void prepare() override {
    start();
    for (const auto& url : kAll) post(url);
    QVNetworkManager::sharedInstance()->saveAllHits();
    UserDefaults::standardUserDefaults().setObjectForKey("value", "key");
    UserDefaults::standardUserDefaults().synchronize();
  }
  void run() override { isErased_ = QVCoreInitialisation::eraseEverything(); }
  void check() override {
    if (isErased_) expectNothing();
    expect(QVCoreInitialisation::eraseEverything(), "nor can it be erased afterwards");
    expectNothing();
    expectedHits_.emplace();
  }

 private:
  void expectNothing() {
    std::error_code none;
    const auto directory = std::filesystem::path(pathOfHits()).parent_path();
    expect(!std::filesystem::exists(directory, none) || std::filesystem::is_empty(directory, none),
           "hits are left on the disk");
    expect(UserDefaults::standardUserDefaults().objectForKey("key").isNil(),
           "a preference is left");
    expect(waitingHits().empty(), "hits wait");
  }

  bool isErased_ = false;
};

/// The file holds "old", and "new" has been set since.
class Preferences : public Flow {
 public:
  explicit Preferences(const std::string& container) : Flow(container) {
    Application::setIdentifier("faults");
  }
  void prepare() override {
    defaults().setObjectForKey("1", "old");
    expect(defaults().synchronize(), "nothing can be saved at all");
    defaults().setObjectForKey("2", "new");
  }
  void check() override {
    const Dictionary saved = savedValues();
    expect(saved.get("old") == Value("1"), "an old preference is not in the file");
    expect(saved.get("new").isNil() || saved.get("new") == Value("2"),
           "a wrong value is in the file");
    defaults().setObjectForKey("3", "next");
    expect(defaults().synchronize(), "nor can it be saved afterwards");
    const Dictionary next = savedValues();
    for (const char* key : {"old", "new", "next"}) {
      expect(!next.get(key).isNil() && next.get(key) == defaults().objectForKey(key),
             std::string(key) + " is not in the file afterwards");
    }
  }

 protected:
  static UserDefaults& defaults() { return UserDefaults::standardUserDefaults(); }
  Dictionary savedValues() const {
    const String path = container_ + "/Library/Preferences/faults.plist";
    return PropertyList::valueWithData(FileManager::contentsAtPath(path, 1U << 20).view())
        .dictionary();
  }
};

class Synchronize final : public Preferences {
 public:
  using Preferences::Preferences;
  void run() override { isSaved_ = defaults().synchronize(); }
  void check() override {
    expect(!isSaved_ || !savedValues().get("new").isNil(), "told to be saved, and is not");
    Preferences::check();
  }

 private:
  bool isSaved_ = false;
};

/// What an earlier run has saved is not known yet.
class FirstSynchronize final : public Preferences {
 public:
  using Preferences::Preferences;
  void prepare() override {
    exitStatusOf(
        startChild([this] { return (Preferences::prepare(), defaults().synchronize()) ? 0 : 1; }));
    defaults().setObjectForKey("2", "new");
  }
  void run() override { defaults().synchronize(); }
};

class Exchange final : public Preferences {
 public:
  using Preferences::Preferences;
  void run() override { held_ = defaults().exchangeObjectForKey(nil_, value_, key_); }
  void check() override {
    const Value now = defaults().exchangeObjectForKey(nil_, "other", key_);
    expect(held_.isNil() || held_ == now, "the value that was agreed on is another one now");
    Preferences::check();
    expect(savedValues().get(key_) == now, "the value is not in the file afterwards");
  }

 private:
  const Value nil_{};
  const Value value_{"mine"};
  const String key_{"agreed"};
  Value held_;
};

}  // namespace

std::vector<FlowKind> fileFlows() {
  return {
      {"saving hits", "the old or the new list is in the file; the next save saves all",
       &make<Save>},
      {"a post that is saved",
       "it waits or is refused, and the file is the old or the new list; the next post is saved",
       &make<SavedPost>},
      {"restoring hits", "each is queued once or still on the disk; none is lost", &make<Restore>},
      {"starting the core",
       "the next hit waits, the network is watched; what was saved is restored, now or at the next "
       "start",
       &make<Start>},
      {"the clean end", "what it tells is so; called again, it saves all", &make<CleanEnd>},
      {"erasing everything", "what it tells is so; called again, it erases all", &make<Erase>},
      {"saving user defaults", "the old or the new values are in the file; the next time saves all",
       &make<Synchronize>},
      {"saving user defaults that were not read before",
       "what other runs have saved stays; the next time saves all", &make<FirstSynchronize>},
      {"agreeing on a user default",
       "the value that it answers stays, and is in the file the next time", &make<Exchange>},
  };
}
