#include "modules/consent/Consent.h"

#include <QVCore/QVCore.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Foundation/ClassRegistry.h>

using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;

namespace {

/// Nobody has to call this module for the core to see that it is there: being loaded is enough.
[[maybe_unused]] const bool isPresent = [] {
  QVPlatform::ClassRegistry::registerClass("QVMobilePrivacy");
  return true;
}();

void post(const String& name, const Dictionary& userInfo = nullptr) {
  NotificationCenter::defaultCenter()->postNotification(Notification(name, nullptr, userInfo));
}

}  // namespace

#define CONSENT_EXPORT __attribute__((visibility("default")))

CONSENT_EXPORT void consentAccept(const char* text) {
  post(kQVNotification_StartingTheSDK, {{kQVUserInfo_POSTData, text}});
}

/// Tells the other modules, which build no more hits then. By itself it holds none that are posted:
/// docs/consent.md has what that takes.
CONSENT_EXPORT void consentRefuse() { post(kQVNotification_StoppingTheSDK); }
