#include "soak/History.h"

namespace {

std::string describe(const Reception& reception) {
  return "server, from process " + std::to_string(reception.life) + ": " +
         (reception.isPost ? "POST" : "GET") + " on connection " +
         std::to_string(reception.connection) + ", its request " + std::to_string(reception.place) +
         ": " + nameOf(reception.deed);
}

}  // namespace

const char* nameOf(What what) {
  constexpr const char* kNames[] = {
      "posting",      "posted",        "answered",     "answered-empty", "answered-wrong",
      "failed",       "dropped",       "filed",        "starting",       "started",
      "saves-always", "backgrounding", "backgrounded", "foregrounding",  "foregrounded",
      "drained",      "shut-down",     "disk-fails",   "network-fails",  "fault-ends",
      "stuck"};
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

bool isAnswer(Deed deed) { return deed <= Deed::kStrayBehind204 || deed >= Deed::kLateClose; }

bool isSilentDeath(Deed deed) {
  return deed == Deed::kResetAfterRead || deed == Deed::kCloseAfterRead;
}

std::string historyOf(const Hit& hit, const History& history) {
  std::multimap<Time, std::string> lines;
  std::set<int> lives;
  for (const Event& event : hit.events) {
    lines.emplace(event.time, "process " + std::to_string(event.life) + ": " + nameOf(event.what));
    lives.insert(event.life);
  }
  for (const Reception& reception : hit.receptions) {
    lines.emplace(reception.time, describe(reception));
  }
  const Time begin = lines.empty() ? 0 : lines.begin()->first;
  for (const int number : lives) {
    const std::string name = "process " + std::to_string(number) + " itself";
    for (const Event& event : history.lives[static_cast<std::size_t>(number)].events) {
      lines.emplace(event.time, name + ": " + nameOf(event.what));
    }
  }
  std::string text;
  for (const auto& [time, line] : lines) {
    text += "    " + std::to_string((time - begin) / 1000) + " us  " + line + "\n";
  }
  return text;
}
