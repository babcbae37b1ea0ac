#include "soak/History.h"

const char* nameOf(What what) {
  constexpr const char* kNames[] = {
      "posting",      "posted",        "answered",     "answered-empty", "answered-wrong",
      "failed",       "dropped",       "filed",        "starting",       "started",
      "saves-always", "backgrounding", "backgrounded", "foregrounding",  "foregrounded",
      "drained",      "stuck"};
  return kNames[static_cast<std::size_t>(what)];
}

const char* nameOf(Deed deed) {
  constexpr const char* kNames[] = {"answer",
                                    "answer, and close",
                                    "204",
                                    "answer, and close unannounced",
                                    "answer, and reset at the next request",
                                    "two answers",
                                    "204 with bytes behind",
                                    "reset after reading",
                                    "close after reading",
                                    "reset within the answer",
                                    "403",
                                    "404",
                                    "500",
                                    "no answer",
                                    "answer, later close",
                                    "answer, later 408",
                                    "answer, later another",
                                    "answer, later a line end",
                                    "204, later bytes behind"};
  return kNames[static_cast<std::size_t>(deed)];
}

bool isAnswer(Deed deed) { return deed <= Deed::strayBehind204 || deed >= Deed::lateClose; }

bool isSilentDeath(Deed deed) {
  return deed == Deed::resetAfterRead || deed == Deed::closeAfterRead;
}
