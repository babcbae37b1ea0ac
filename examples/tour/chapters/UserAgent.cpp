#include <QVCore/QVUtils.h>
#include <QVPlatform/WebKit/WebEngine.h>

#include <optional>

#include "tour/Chapters.h"
#include "tour/kit/ScriptedEngine.h"

using QVPlatform::String;
using QVPlatform::Value;
using QVPlatform::WebEngine;

namespace {

/// Whether the engine that the platform has found can evaluate a script here: one that is installed
/// cannot where there is no display.
bool engineWorks(Host& host) {
  const auto engine = WebEngine::engine();
  const auto view = engine ? engine->makeWebView({}) : nullptr;
  if (!view) return false;
  const auto answer = std::make_shared<std::optional<Value>>();
  view->evaluateJavaScript("navigator.userAgent",
                           [answer](const Value& result, const auto&) { *answer = result; });
  host.runUntil([&] { return answer->has_value(); });
  return answer->has_value() && !(*answer)->isNil();
}

String knownUserAgent() {
  return QVCoreVariables::sharedInstance()->getData(kQVPredefinedVariable_UserAgent).string();
}

void seekUserAgent(Tour& tour) {
  // Without a pool of our own, the engine takes its default one.
  QVCoreVariables::sharedInstance()->initUserAgentWithProcessPool(nullptr);
  tour.host.runUntil([] { return !knownUserAgent().isNull(); });
}

}  // namespace

void learnUserAgent(Tour& tour) {
  tour.narrator.say(
      "The core asks the system's web engine for its user agent. (It would do so when it starts; "
      "this application has said that it will choose the moment.) Hits that are told to wait for "
      "it, and still wait for consent, have it appended to their body.");
  if (engineWorks(tour.host)) {
    tour.narrator.say("This system has a web engine that works here.");
  } else {
    tour.narrator.say(
        "No web engine works here, so the application hands in one of its own, which only knows "
        "its user agent.");
    WebEngine::setEngine(std::make_shared<ScriptedEngine>());
  }
  tour.host.manager().waitForUserAgent();
  seekUserAgent(tour);
  const String userAgent = knownUserAgent();
  tour.narrator.say("It is \"" + std::string(userAgent.view()) + "\".");
  tour.narrator.check(userAgent.hasPrefix("Mozilla/5.0"), "that is what a web engine calls itself");
  tour.narrator.check(tour.host.waitForQueue(3), "the hits still wait for consent");
  tour.userAgentText = "&QV_USER_AGENT=" + std::string(QVURLEncodedString(userAgent).view());
}

void waitForUserAgent(Tour& tour) {
  tour.narrator.say(
      "A kit that runs can be told to wait for the user agent as well. Here the application "
      "forgets the one that it knew; the hits wait until it is known anew, and leave as they are.");
  QVCoreVariables::sharedInstance()->removeData(kQVPredefinedVariable_UserAgent);
  tour.host.manager().waitForUserAgent();
  tour.host.send({"early", "bird", "worm"});
  tour.narrator.check(tour.host.waitForQueue(3), "three hits wait");
  tour.expectHits({}, "the collector has received nothing");

  seekUserAgent(tour);
  tour.narrator.checkSame({"early answered: ok", "bird answered: ok", "worm answered: ok"},
                          tour.host.waitForOutcomes(3), "three answers, in order");
  tour.expectHits({"POST /hit page=early", "POST /hit page=bird", "POST /hit page=worm"},
                  "each hit arrived once, with nothing appended");
}
