#include <QVCore/QVCore.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>

#include <memory>

#if QVCORE_VERSION < 40700
#error "the version can be asked for before anything is compiled"
#endif

// Touches each kind of thing that an application takes from the libraries: the core's start, a
// class to derive from, exported constants and their identity, and the platform's own classes. No
// network is needed: the hit is one that the core refuses, at once and on this thread.

namespace {

using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;

class RefusalCounter : public IQVEventListenerDelegate {
 public:
  RefusalCounter() {
    listener_->init();
    listener_->setParent(this);
    listener_->listen(kQVNotification_HTTPRequestError);
  }
  ~RefusalCounter() override { listener_->setParent(nullptr); }

  int count() const { return count_; }

  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>& center) override {
    listener_->setNotificationCenter(center);
  }
  void onNotificationReceived(const Notification& notification) override {
    const QVPlatform::Value error = notification.userInfo().get(kQVUserInfo_ErrorKey);
    if (error.description() == kQVErrorMessageInvalidURL) ++count_;
  }

 private:
  const std::shared_ptr<QVEventListener> listener_ = std::make_shared<QVEventListener>();
  int count_ = 0;
};

}  // namespace

int main() {
  std::make_shared<QVCoreInitialisation>()->init();
  RefusalCounter counter;
  NotificationCenter::defaultCenter()->postNotification(Notification(
      kQVNotification_HTTPRequest, nullptr, Dictionary{{kQVUserInfo_URLKey, "not a URL"}}));
  return counter.count() == 1 && kQVCoreVersion == String("4.7.4") ? 0 : 1;
}
