#include "soak/Errand.h"

const char* nameOf(Ending ending) {
  constexpr const char* kNames[] = {"drained", "saved",  "shut down",
                                    "exits",   "killed", "killed in the background"};
  return kNames[static_cast<std::size_t>(ending)];
}

std::vector<std::string> Errand::arguments() const {
  return {container,
          ledger,
          std::to_string(port),
          std::to_string(seed),
          std::to_string(firstHit),
          std::to_string(hitCount),
          std::to_string(static_cast<int>(ending)),
          std::to_string(seconds)};
}

Errand Errand::from(char** arguments) {
  return {arguments[0],
          arguments[1],
          std::stoi(arguments[2]),
          std::stoull(arguments[3]),
          static_cast<HitID>(std::stoul(arguments[4])),
          static_cast<std::uint32_t>(std::stoul(arguments[5])),
          static_cast<Ending>(std::stoi(arguments[6])),
          std::stoi(arguments[7])};
}
