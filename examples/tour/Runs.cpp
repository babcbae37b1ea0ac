#include "tour/Runs.h"

#include <algorithm>

namespace {

std::string variable(const QVPlatform::String& name) {
  const auto value = QVCoreVariables::sharedInstance()->getData(name);
  return value.isNil() ? "none" : std::string(value.string().view());
}

void showIdentifiers(Narrator& narrator) {
  for (const auto& name : {kQVPredefinedVariable_SDKID, kQVPredefinedVariable_IDFV,
                           kQVPredefinedVariable_NormalizedID}) {
    narrator.event(std::string(name.view()) + " is " + variable(name));
  }
}

/// Sends a hit that says from which installation it comes.
void sendWithIdentifier(Host& host, const std::string& page) {
  host.hits().send(page, "&sdkid=" + variable(kQVPredefinedVariable_SDKID));
}

}  // namespace

void runMonday(Host& host, Narrator& narrator) {
  host.startCore();
  showIdentifiers(narrator);
  sendWithIdentifier(host, "breakfast");
  narrator.checkSame({"#0 breakfast answered: ok"}, host.waitForNumberedOutcomes(1), "one answer");
  host.setNetworkUp(false);
  host.send({"lunch", "tea", "dinner"});
  narrator.check(host.waitForQueue(3), "three hits wait");
  narrator.say("The application goes to the background; the core's log says:");
  host.enterBackground();
}

void runTuesday(Host& host, Narrator& narrator) {
  narrator.say("The network is not there yet; the core's log says:");
  host.startCore();
  showIdentifiers(narrator);
  narrator.check(host.waitForQueue(3), "three hits wait");
  host.setNetworkUp(true);
  narrator.checkSame({"#1 lunch answered: ok", "#2 tea answered: ok", "#3 dinner answered: ok"},
                     host.waitForNumberedOutcomes(3), "three answers, under the numbers of Monday");
  sendWithIdentifier(host, "brunch");
  narrator.checkSame({"#0 brunch answered: ok"}, host.waitForNumberedOutcomes(1),
                     "new hits are numbered from 0 again");
}

void runRefusal(Host& host, Narrator& narrator) {
  host.loadConsentModule();
  host.startCore();
  host.send({"home", "news"});
  host.refuseConsent();
  const auto waiting = host.manager().operationQueue()->operations();
  const bool areCancelled = std::all_of(waiting.begin(), waiting.end(),
                                        [](const auto& hit) { return hit->isCancelled(); });
  narrator.check(waiting.size() == 2 && areCancelled, "both hits are cancelled");
}
