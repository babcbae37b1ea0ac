#include <netdb.h>

#include "tests/faults/Flows.h"

namespace {

std::string serverURL;

class Transfer : public Flow {
 public:
  using Flow::Flow;
  ~Transfer() override { NotificationCenter::defaultCenter()->removeObserver(this); }
  void prepare() override {
    start(QVTest::ScriptedReachability::kReachable);
    const auto& center = NotificationCenter::defaultCenter();
    center->addObserver(
        this,
        [this](const Notification& answer) {
          isRight_ = answer.userInfo().get(kQVUserInfo_ContentKey) == ok_;
          ++answers_;
        },
        kQVNotification_HTTPResponse);
    center->addObserver(
        this, [this](const Notification&) { ++errors_; }, kQVNotification_HTTPRequestError);
  }
  void run() override {
    NotificationCenter::defaultCenter()->postNotification(hit_);
    waitForEnd();
  }
  void check() override {
    const int answers = answers_, errors = errors_;
    expect(answers + errors == 1, std::to_string(answers) + " answers and " +
                                      std::to_string(errors) + " errors for one hit");
    expect(answers == 0 || isRight_, "a wrong answer");
    answers_ = errors_ = 0;
    NotificationCenter::defaultCenter()->postNotification(hit_);
    waitForEnd();
    expect(answers_ == 1 && isRight_, "the next hit is not answered");
  }

 protected:
  void waitForEnd() const {
    waitUntil([this] { return answers_ + errors_ > 0; });
  }

  const Notification hit_{kQVNotification_HTTPRequest, nullptr,
                          Dictionary{{kQVUserInfo_URLKey, serverURL}}};
  std::atomic<int> answers_{0}, errors_{0};
  const Value ok_{"ok"};
  std::atomic<bool> isRight_{false};
};

/// The second hit goes over the connection of the first one.
class KeptTransfer final : public Transfer {
 public:
  using Transfer::Transfer;
  void prepare() override {
    Transfer::prepare();
    Transfer::run();
    answers_ = errors_ = 0;
  }
};

/// Asks the kernel.
class Watch final : public Flow {
 public:
  explicit Watch(const std::string& container) : Flow(container) {
    NetworkReachability::setSource(nullptr);
  }
  /// The C library ends a process whose memory runs out while it reads its own settings, which it
  /// does for the first name.
  void prepare() override {
    addrinfo* addresses = nullptr;
    if (getaddrinfo("localhost", nullptr, nullptr, &addresses) == 0) freeaddrinfo(addresses);
  }
  void run() override {
    callOut([this] {
      monitor_ = QVReachability::reachabilityWithHostName("localhost");
      hasStarted_ = monitor_ && monitor_->startNotifier();
      if (monitor_) monitor_->reachabilityFlags();
    });
  }
  void check() override {
    if (!monitor_) monitor_ = QVReachability::reachabilityWithHostName("localhost");
    expect(hasStarted_ == (monitor_->reachabilityObject() != nullptr), "it tells what is not so");
    if (!hasStarted_) expect(monitor_->startNotifier(), "nor can it be started afterwards");
    expect(waitUntil([this] { return monitor_->isReachable(); }), "localhost is not reachable");
    monitor_->stopNotifier();
  }

 private:
  std::shared_ptr<QVReachability> monitor_;
  bool hasStarted_ = false;
};

}  // namespace

std::vector<FlowKind> networkFlows(const std::string& server) {
  serverURL = server;
  return {
      {"sending a hit", "it is answered rightly, or by an error, once; the next one is answered",
       &make<Transfer>},
      {"sending over a kept connection", "likewise", &make<KeptTransfer>},
      {"watching the network",
       "it tells whether it watches; started again, it does, and its flags are right",
       &make<Watch>},
  };
}
