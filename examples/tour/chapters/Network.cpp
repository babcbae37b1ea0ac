#include "tour/Chapters.h"

namespace {

std::string connectionType() {
  const auto type =
      QVCoreVariables::sharedInstance()->getData(kQVPredefinedVariable_Connexion).string();
  return std::string(type.view());
}

}  // namespace

void loseNetwork(Tour& tour) {
  tour.narrator.say(
      "While there is no network, hits wait; when it is back, they leave in the order in which "
      "they came. (The system's own network is left alone: the tour has handed in one that it "
      "can switch.)");
  tour.host.setNetworkUp(false);
  tour.narrator.check(connectionType() == "Connection Type Unavailable",
                      "#QV_CONNEXION# is \"" + connectionType() + "\"");
  tour.host.send({"tunnel", "bridge", "station"});
  tour.narrator.check(tour.host.waitForQueue(3), "three hits wait");
  tour.expectHits({}, "the collector has received nothing");

  tour.host.setNetworkUp(true);
  tour.narrator.check(connectionType() == "WiFi", "#QV_CONNEXION# is \"" + connectionType() + "\"");
  tour.narrator.checkSame({"tunnel answered: ok", "bridge answered: ok", "station answered: ok"},
                          tour.host.waitForOutcomes(3), "three answers, in order");
  tour.expectHits({"POST /hit page=tunnel", "POST /hit page=bridge", "POST /hit page=station"},
                  "each hit arrived once, in order");
}
