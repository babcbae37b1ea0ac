#pragma once

#include "tour/kit/Host.h"
#include "tour/kit/Narrator.h"

// What the tour's other applications do, each in a process of its own.

void runMonday(Host& host, Narrator& narrator);
void runTuesday(Host& host, Narrator& narrator);
void runRefusal(Host& host, Narrator& narrator);

struct Run {
  const char* name;
  void (*tell)(Host& host, Narrator& narrator);
  bool isNetworkUp;  ///< When the application starts.
};

constexpr Run kRuns[] = {
    {"monday", runMonday, true}, {"tuesday", runTuesday, false}, {"refusal", runRefusal, true}};
