#include "main_loops/OneHit.h"

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/MainQueue.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/SystemConfiguration/NetworkReachability.h>
#include <sys/signalfd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "send_hits/AlwaysReachable.h"

using namespace QVPlatform;

namespace {

void startCore(const char* name, bool assumesNetwork) {
  Application::setIdentifier(name);
  if (assumesNetwork) NetworkReachability::setSource(std::make_shared<AlwaysReachable>());
  QVDebug::useCustomWKProcessPool(true);  // nobody here asks for a user agent: start no web engine
  std::make_shared<QVCoreInitialisation>()->init();
}

}  // namespace

int openTermination() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

OneHit::OneHit(int argumentCount, char** arguments, std::function<void()> whenOver)
    : whenOver_(std::move(whenOver)) {
  if (argumentCount < 2) {
    consoleLog(stringWithFormat("usage: %@ URL [--assume-network]", {arguments[0]}));
    std::exit(2);
  }
  startCore("main_loops", argumentCount > 2 && !std::strcmp(arguments[2], "--assume-network"));

  const auto& center = NotificationCenter::defaultCenter();
  const String url = arguments[1];
  const auto onOutcome = [this, url](const Notification& outcome) {
    // A hit that an earlier run left comes back, too.
    if (outcome.userInfo().get(kQVUserInfo_URLKey).string() != url) return;
    isAnswered_ = outcome.name() == kQVNotification_HTTPResponse;
    consoleLog(stringWithFormat(isAnswered_ ? "answered: %@" : "failed: %@", {url}));
    // This is the thread that made the transfer; what the host does about it belongs to its own.
    MainQueue::mainQueue().async(whenOver_);
  };
  center->addObserver(this, onOutcome, kQVNotification_HTTPResponse);
  center->addObserver(this, onOutcome, kQVNotification_HTTPRequestError);
  center->postNotification(
      Notification(kQVNotification_HTTPRequest, nullptr, {{kQVUserInfo_URLKey, url}}));
}

OneHit::~OneHit() { NotificationCenter::defaultCenter()->removeObserver(this); }

int OneHit::end() {
  QVNetworkManager::sharedInstance()->shutdownWithin(std::chrono::milliseconds(200));
  return isAnswered_ ? 0 : 1;
}
