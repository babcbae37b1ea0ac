// A tour of the core: tells what it does while it does it, and checks that it did.
//
// Exit status: 0 if everything came about as promised, 1 if something differed, 2 for wrong usage.

#include <QVPlatform/Application.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "tour/Chapters.h"
#include "tour/Runs.h"
#include "tour/kit/TemporaryDirectory.h"

namespace {

int tellTour() {
  const TemporaryDirectory directory;
  Narrator narrator;
  Collector collector;
  QVPlatform::Application::setIdentifier("org.example.tour");
  Host host(directory.path() + "/first", collector.url(), true, narrator);
  Tour tour{narrator, collector, host, directory.path() + "/second", ""};

  narrator.title("A tour of QVCore " + std::string(kQVCoreVersion.view()));
  narrator.say("Hits go to a collector on " + collector.url() +
               ". \">\" is what the application hands to the core, \"<\" what comes back.");
  for (const Chapter& chapter : kChapters) {
    narrator.chapter(chapter.title);
    chapter.tell(tour);
    if (!narrator.isContent()) break;  // later chapters build on this one
  }
  narrator.conclude();
  return narrator.isContent() ? 0 : 1;
}

int runApplication(const Run& run, const std::string& container, const std::string& collectorURL) {
  Narrator narrator;
  QVPlatform::Application::setIdentifier("org.example.tour.second");
  Host host(container, collectorURL, run.isNetworkUp, narrator);
  run.tell(host, narrator);
  return narrator.isContent() ? 0 : 1;
}

int runTour(int argumentCount, char** arguments) {
  if (argumentCount == 1) return tellTour();
  if (argumentCount == 5 && std::string_view(arguments[1]) == "--run") {
    for (const Run& run : kRuns) {
      if (run.name == std::string_view(arguments[2])) {
        return runApplication(run, arguments[3], arguments[4]);
      }
    }
  }
  std::fputs("usage: tour\n", stderr);
  return 2;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    return runTour(argumentCount, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tour: %s\n", error.what());
    return 1;
  }
}
