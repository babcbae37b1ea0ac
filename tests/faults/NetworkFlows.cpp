#include <netdb.h>

#include "tests/faults/Flows.h"

namespace {

std::string serverURL;

class Transfer : public Flow {
 public:
  explicit Transfer(const std::string& container) : Flow(container) {}
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
        answer_);
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

  Transfer(const std::string& container, const String& request, const Dictionary& data,
           String answer)
      : Flow(container), hit_(request, nullptr, data), answer_(std::move(answer)) {}

  const Notification hit_{kQVNotification_HTTPRequest, nullptr,
                          Dictionary{{kQVUserInfo_URLKey, serverURL}}};
  const String answer_ = kQVNotification_HTTPResponse;
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

/// On the condition that it has changed since the last time, which is kept.
class Download final : public Transfer {
 public:
  explicit Download(const std::string& container)
      : Transfer(container, kQVNotification_ConfigurationRequest,
                 {{kQVUserInfo_URLKey, serverURL}, {kQVUserInfo_ResponseKey, "c"}},
                 kQVNotification_ConfigurationResponse) {}
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
      {"downloading a configuration", "likewise", &make<Download>},
      {"watching the network",
       "it tells whether it watches; started again, it does, and its flags are right",
       &make<Watch>},
  };
}
