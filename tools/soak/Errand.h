#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "soak/History.h"

/// How a host ends.
enum class Ending : std::uint8_t {
  kDrained,             // when all has been sent
  kSaved,               // in the background, with hits waiting
  kShutDown,            // by the clean end, while hits are posted
  kExits,               // whatever is going on
  kKilled,              // whatever is going on
  kKilledInBackground,  // as the system does with applications in the background
};
const char* nameOf(Ending ending);

/// Behind the name of a ledger: that of the process that its host forked.
constexpr char kForkedSuffix[] = ".forked";

/// What a host is to do; the rest follows from the seed.
struct Errand {
  std::string container;
  std::string ledger;
  int port = 0;  // of the server
  std::uint64_t seed = 0;
  HitID firstHit = 1;
  std::uint32_t hitCount = 0;
  Ending ending = Ending::kDrained;
  int seconds = 0;  // that the hits are spread over; 0 for a host that does not wait

  /// Where the host's standard error goes.
  std::string log() const { return ledger + ".log"; }
  /// As arguments of a program, and back.
  std::vector<std::string> arguments() const;
  static Errand from(char** arguments);
  static constexpr int kArgumentCount = 8;
};
