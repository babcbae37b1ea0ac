#include "tour/Chapters.h"

void holdHitsForConsent(Tour& tour) {
  tour.narrator.say(
      "The consent module is a library of its own. This application loads it and then starts the "
      "core, which sees that the module is there and holds all hits until the person in front of "
      "the screen has agreed.");
  tour.host.loadConsentModule();
  tour.host.startCore();
  tour.host.send({"home", "news", "sport"});
  tour.narrator.check(tour.host.manager().managerState() == QVManagerStateWaitingForStart,
                      "the core waits for the consent module");
  tour.narrator.check(tour.host.waitForQueue(3), "three hits wait");
  tour.expectHits({}, "the collector has received nothing");
}

void startWithConsent(Tour& tour) {
  tour.narrator.say(
      "The consent module starts the kit, with a text to append to each hit that waits. They go "
      "out one after the other over one connection; each answer carries the number of its hit.");
  tour.host.acceptConsent("&consent=statistics");
  tour.narrator.checkSame({"#0 home answered: ok", "#1 news answered: ok", "#2 sport answered: ok"},
                          tour.host.waitForNumberedOutcomes(3), "three answers, in order");
  const std::string appended = tour.userAgentText + "&consent=statistics";
  tour.expectHits({"POST /hit page=home" + appended, "POST /hit page=news" + appended,
                   "POST /hit page=sport" + appended},
                  "each hit arrived once, with the user agent and the text appended");
  tour.narrator.check(tour.collector.connections() == 1, "they came over one connection");
}

void stop(Tour& tour) {
  tour.narrator.say(
      "When the consent module stops a kit that was running, the core goes on with what it is "
      "given: it is the consent module that keeps the others from sending.");
  tour.host.refuseConsent();
  tour.narrator.check(tour.host.manager().managerState() == QVManagerStateStopped,
                      "the core is stopped");
  tour.host.send({"farewell"});
  tour.narrator.checkSame({"farewell answered: ok"}, tour.host.waitForOutcomes(1),
                          "a hit that is sent nevertheless is answered");
  tour.expectHits({"POST /hit page=farewell"}, "and has arrived");

  tour.narrator.say(
      "A kit that has not started yet is another matter. In a second application the person says "
      "no before saying yes:");
  tour.runApplication("refusal");
  tour.expectHits({}, "nothing of it has arrived");
}
