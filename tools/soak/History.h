#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

// What is known of a lane when its run is over: the server's notes and those of the hosts, on one
// clock, which all processes of the machine share.

using HitID = std::uint32_t;  // from 1
using Time = std::int64_t;    // nanoseconds of the steady clock

inline Time timeNow() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// What a host writes into its ledger, of a hit or of itself.
enum class What : std::uint8_t {
  posting,        // a hit is about to be handed to the core
  posted,         // the core has it
  answered,       // by the server's own answer to this hit
  answeredEmpty,  // by an answer without a body
  answeredWrong,  // by what is no answer to this hit
  failed,         // an error was told
  dropped,        // cancelled by the core because the queue was full
  filed,          // seen in the file after going to the background
  starting,       // the core is about to be started, which restores hits
  started,
  savesAlways,  // from here on each change of the queue is saved
  backgrounding,
  backgrounded,  // and the hits are saved, unless they are with each change
  foregrounding,
  foregrounded,
  drained,  // the queue ran empty
  stuck,    // the queue did not run empty, or a forked process did not end
};
const char* nameOf(What what);

/// What the server does about a request.
enum class Deed : std::uint8_t {
  answer,
  answerAndClose,   // as announced
  answerEmpty,      // with 204
  closeAfter,       // answer, and close although the connection should be kept
  closeBeforeNext,  // answer, and reset when the next request comes, unread
  secondAnswer,     // two answers at once
  strayBehind204,   // an answer with a body that it must not have
  resetAfterRead,
  closeAfterRead,
  resetInAnswer,
  forbidden,
  notFound,
  serverError,
  hang,
  // What is done to a connection that is kept, once the client has its answer and is idle:
  lateClose,
  late408,
  lateSecondAnswer,
  lateLineEnd,
  lateBehind204,
};
const char* nameOf(Deed deed);
/// Whether the client gets a whole answer that is no error.
bool isAnswer(Deed deed);
/// Whether the connection dies before a byte of an answer was sent.
bool isSilentDeath(Deed deed);

struct Reception {
  HitID hit;
  Time time;
  int life;
  unsigned connection;
  unsigned place;  // on the connection, from 0
  Deed deed;
  bool isPost;
  bool hasOwnBody;  // the body is the one of this hit
};

struct Event {
  Time time;
  int life;
  What what;
};

struct Hit {
  int life = -1;  // that posted it
  std::vector<Event> events;
  std::vector<Reception> receptions;
};

/// One process, from its start to its end.
struct Life {
  int parent = -1;            // the life that was forked
  std::vector<Event> events;  // of the process itself
  std::string ending;
  bool endedAsPlanned = true;
  std::string log;  // if it ended otherwise: how, and what it wrote on standard error
  std::set<HitID> fileAtStart;
  std::set<HitID> fileAtEnd;
  std::set<HitID> twiceInFile;
};

struct History {
  std::map<HitID, Hit> hits;
  std::vector<Life> lives;
};

/// All that is known of a hit and its processes, one event a line.
std::string historyOf(const Hit& hit, const History& history);
