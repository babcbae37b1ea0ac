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
  kPosting,        // a hit is about to be handed to the core
  kPosted,         // the core has it
  kAnswered,       // by the server's own answer to this hit
  kAnsweredEmpty,  // by an answer without a body
  kAnsweredWrong,  // by what is no answer to this hit
  kFailed,         // an error was told
  kDropped,        // cancelled by the core because the queue was full
  kFiled,          // seen in the file after going to the background
  kStarting,       // the core is about to be started, which restores hits
  kStarted,
  kSavesAlways,  // from here on each change of the queue is saved
  kBackgrounding,
  kBackgrounded,  // and the hits are saved, unless they are with each change
  kForegrounding,
  kForegrounded,
  kDrained,       // the queue ran empty
  kShutDown,      // by the clean end, and nothing is under way
  kDiskFails,     // from here on calls that concern files may
  kNetworkFails,  // from here on those that concern connections may
  kFaultEnds,     // what failed succeeds again
  kStuck,         // the queue did not run empty, or a forked process did not end
};
const char* nameOf(What what);

/// What the server does about a request.
enum class Deed : std::uint8_t {
  kAnswer,
  kAnswerAndClose,   // as announced
  kAnswerEmpty,      // with 204
  kCloseAfter,       // answer, and close although the connection should be kept
  kCloseBeforeNext,  // answer, and reset when the next request comes, unread
  kSecondAnswer,     // two answers at once
  kStrayBehind204,   // an answer with a body that it must not have
  kResetAfterRead,
  kCloseAfterRead,
  kResetInAnswer,
  kForbidden,
  kNotFound,
  kServerError,
  kHang,
  // What is done to a connection that is kept, once the client has its answer and is idle:
  kLateClose,
  kLate408,
  kLateSecondAnswer,
  kLateLineEnd,
  kLateBehind204,
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
