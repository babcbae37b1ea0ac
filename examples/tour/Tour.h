#pragma once

#include <string>
#include <vector>

#include "tour/kit/Collector.h"
#include "tour/kit/Host.h"
#include "tour/kit/Narrator.h"

/// What the chapters of the tour have in common.
struct Tour {
  /// Checks that the collector received exactly these hits since the last such check, in order:
  /// "POST /hit page=home".
  void expectHits(const std::vector<std::string>& expected, const std::string& what) {
    narrator.checkSame(expected, collector.takeHits(), what);
  }
  /// Runs this program again as another application with a container of its own (Runs.h), and
  /// checks that it found nothing amiss.
  void runApplication(const std::string& run);

  Narrator& narrator;
  Collector& collector;
  Host& host;
  /// Container of the applications that runApplication() starts.
  std::string otherContainer;
  /// What is appended to the bodies of hits that wait when the user agent becomes known.
  std::string userAgentText;
};

/// A chapter builds on those before it; it leaves the core with an empty queue.
struct Chapter {
  const char* title;
  void (*tell)(Tour& tour);
};
