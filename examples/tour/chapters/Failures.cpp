#include "tour/Chapters.h"

void tellFailuresApart(Tour& tour) {
  tour.narrator.say(
      "An address that is no URL is refused at once. Of the answers, 403, 404 and 500 count as "
      "failures; any other one, 503 for instance, is an answer.");
  tour.host.hits().sendTo("no address at all", "typo");
  tour.host.hits().sendTo(tour.collector.url() + "/status/404", "missing");
  tour.host.hits().sendTo(tour.collector.url() + "/status/503", "busy");
  tour.narrator.checkSame(
      {"typo refused: Error : invalid URL", "missing failed: status 404", "busy answered: ok"},
      tour.host.waitForOutcomes(3), "each has the outcome that it should have");
  tour.expectHits({"POST /status/404 page=missing", "POST /status/503 page=busy"},
                  "the refused hit never left");
}

void blockHits(Tour& tour) {
  tour.narrator.say(
      "For tests of an application: while hits are blocked, the core takes them, numbers them and "
      "drops them without a word.");
  QVDebug::blockHits(true);
  tour.host.send({"secret", "private"});
  tour.narrator.check(tour.host.waitForQueue(0), "the queue is empty again");
  tour.expectHits({}, "the collector has received nothing");

  QVDebug::blockHits(false);
  tour.host.send({"public"});
  tour.narrator.checkSame({"public answered: ok"}, tour.host.waitForOutcomes(1),
                          "the next hit is answered, and the blocked ones are not");
  tour.expectHits({"POST /hit page=public"}, "it has arrived");
}
