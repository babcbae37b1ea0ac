// Puts faults into what the kit does, one at a time: each allocation and each call of the system
// fails in turn, until an operation passes untouched. See docs/reliability.md.

#include <netdb.h>

#include "tests/faults/Flows.h"
#include "tests/faults/Trial.h"
#include "tests/support/ServerProcess.h"

namespace {

struct CallKind {
  Call call;
  const char* name;
  std::vector<int> errors;
};

const std::vector<CallKind> kCallKinds = {
    {Call::kAllocate, "allocations", {ENOMEM}},
    {Call::kMap, "mmap", {ENOMEM}},
    {Call::kOpen, "open", {EACCES, EMFILE, ENFILE, ENOSPC, EIO, EINTR}},
    {Call::kStat, "stat", {EACCES, EIO}},
    {Call::kRead, "read", {EIO, EINTR, kShort}},
    {Call::kWrite, "write", {ENOSPC, EIO, EINTR, kShort}},
    {Call::kTruncate, "ftruncate", {EIO}},
    {Call::kFlush, "fsync", {EIO, ENOSPC}},
    {Call::kRename, "rename", {EACCES, ENOSPC, EIO}},
    {Call::kRemove, "unlink", {EACCES, EIO}},
    {Call::kLock, "flock", {ENOLCK, EINTR}},
    {Call::kMakeDirectory, "mkdir", {EACCES, ENOSPC}},
    {Call::kListDirectory, "opendir", {EACCES, EMFILE}},
    {Call::kSocket, "socket", {EMFILE, ENFILE}},
    {Call::kBind, "bind", {ENOMEM}},
    {Call::kConnect, "connect", {ENETUNREACH, EINTR}},
    {Call::kSend, "send", {EAGAIN, EINTR, ECONNRESET, kShort}},
    {Call::kReceive, "recv", {EAGAIN, EINTR, ECONNRESET, kShort}},
    {Call::kSendMessage, "sendto", {ENOBUFS, EINTR}},
    {Call::kReceiveMessage, "recvmsg", {ENOBUFS, EINTR}},
    {Call::kPoll, "poll", {EINTR, ENOMEM}},
    {Call::kControl, "fcntl", {EMFILE}},
    {Call::kEventFile, "eventfd", {EMFILE, ENFILE}},
    {Call::kStartThread, "pthread_create", {EAGAIN}},
    {Call::kResolve, "getaddrinfo", {EMFILE, EAGAIN}},
};

/// Not what somebody may repeat for ever, and rightly so, until it succeeds; nor a lack of memory.
bool mayLast(int error) {
  return error != EINTR && error != EAGAIN && error != kShort && error != ENOMEM;
}

constexpr char kBegin[] = "<!-- faults -->\n";
constexpr char kEnd[] = "<!-- end of faults -->\n";

struct Row {
  long allocations = 0;
  std::string calls;  // that the operation makes
  long trials = 0;
  long faults = 0;  // trials in which something did not hold
};

class Sweep {
 public:
  Sweep(const FlowKind& kind, bool isQuick) : kind_(kind), isQuick_(isQuick) {}

  Row run() {
    // Nothing comes about after so many calls: this counts them.
    const Outcome untouched = attempt({Call::kAllocate, LONG_MAX, ENOMEM, false});
    for (const CallKind& call : kCallKinds) {
      const long count = untouched.counts[static_cast<std::size_t>(call.call)];
      if (count == 0) continue;
      if (call.call == Call::kAllocate) {
        row_.allocations = count;
      } else {
        row_.calls +=
            (row_.calls.empty() ? "" : ", ") + ("`"s + call.name) + "` " + std::to_string(count);
      }
      for (const int error : call.errors) failEach(call, error, count);
    }
    return row_;
  }

 private:
  /// With the first call failing, with the second, and so on until none is left to fail. The quick
  /// form leaves out some in the middle.
  void failEach(const CallKind& call, int error, long count) {
    const long step = isQuick_ ? count / kQuickPlaces + 1 : 1;
    for (const bool isLasting : {false, true}) {
      if (isLasting && (isQuick_ || !mayLast(error))) continue;
      for (long after = 0; failsAt(call, {call.call, after, error, isLasting}); after += step)
        continue;
    }
  }

  bool failsAt(const CallKind& call, const Fault& fault) {
    const Outcome outcome = attempt(fault);
    if (!outcome.complaint.empty()) {
      ++row_.faults;
      std::printf("%s, %s %ld fails with %s%s:\n%s", kind_.name, call.name, fault.after + 1,
                  fault.error == kShort ? "half" : strerrorname_np(fault.error),
                  fault.isLasting ? " from then on" : "", outcome.complaint.c_str());
      std::fflush(stdout);
    }
    return outcome.hasFailed;
  }

  Outcome attempt(const Fault& fault) {
    ++row_.trials;
    return tryOut(kind_, fault);
  }

  static constexpr long kQuickPlaces = 30;
  const FlowKind& kind_;
  const bool isQuick_;
  Row row_;
};

std::string lineOf(const FlowKind& kind, const Row& row) {
  return "| "s + kind.name + " | " + kind.promise + " | " + std::to_string(row.allocations) +
         " | " + row.calls + " | " + std::to_string(row.trials) + " | " +
         std::to_string(row.faults) + " |\n";
}

/// Puts the table into the page, between the marks.
void writePage(const std::string& path, const std::string& table) {
  const std::string page = contentsOf(path);
  const std::size_t begin = page.find(kBegin), end = page.find(kEnd);
  if (begin == std::string::npos || end == std::string::npos) throw std::runtime_error("no marks");
  putFile(path, page.substr(0, begin) + kBegin + table + page.substr(end));
}

}  // namespace

/// faults [--quick] [OPERATION...]: all of them, or those whose names contain one of the texts. All
/// of them without --quick write the page's table.
int main(int argumentCount, char** arguments) {
  std::vector<std::string> wanted(arguments + 1, arguments + argumentCount);
  const bool isQuick = std::erase(wanted, "--quick") > 0;
  const ServerProcess server;
  std::vector<FlowKind> kinds = fileFlows();
  std::ranges::copy(networkFlows(server.url()), std::back_inserter(kinds));
  std::string table =
      "\n| operation | what holds after each fault | allocations | calls | trials | broken |\n"
      "|---|---|---|---|---|---|\n";
  long faults = 0;
  for (const FlowKind& kind : kinds) {
    const auto isMeant = [&](const std::string& text) {
      return std::string(kind.name).find(text) != std::string::npos;
    };
    if (!wanted.empty() && std::ranges::none_of(wanted, isMeant)) continue;
    const Row row = Sweep(kind, isQuick).run();
    table += lineOf(kind, row);
    std::fputs(lineOf(kind, row).c_str(), stdout);
    std::fflush(stdout);
    faults += row.faults;
  }
  if (!isQuick && wanted.empty()) writePage(QV_PAGE, table + "\n");
  return faults == 0 ? 0 : 1;
}
