#include "tests/faults/Trial.h"

#include <sys/mman.h>

#include "tests/support/ChildProcess.h"

namespace {

/// Seconds after which a process hangs; far more than it takes beside much else.
constexpr unsigned kPatience = 60;

/// In memory that the trial's process shares with this one.
struct Note {
  bool hasFailed;
  std::array<long, kCallCount> counts;
};

Note& sharedNote() {
  static auto* const note = static_cast<Note*>(
      mmap(nullptr, sizeof(Note), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return *note;
}

void beAlone(const std::string& container) {
  alarm(kPatience);
  dup2(open((container + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
}

std::string textOf(const Hits& hits) {
  std::string text;
  for (const auto& hit : hits) text += hit + " ";
  return text;
}

/// The hits that the next run must find, if that matters, and the complaints on lines of their own.
std::string runWithFault(const FlowKind& kind, const Fault& fault, const std::string& container) {
  beAlone(container);
  const auto operation = kind.make(container);
  operation->prepare();
  bool isQuiet = true;
  armFault(fault);
  try {
    operation->run();
  } catch (...) {
    isQuiet = false;
  }
  sharedNote().hasFailed = disarmFault();
  for (int i = 0; i < kCallCount; ++i) {
    sharedNote().counts[static_cast<std::size_t>(i)] = countOf(static_cast<Call>(i));
  }
  operation->check();
  const auto& hits = operation->expectedHits();
  return (hits ? "hits " + textOf(*hits) : "") + "\n" + operation->complaints() +
         (isQuiet ? "" : "an exception came out\n");
}

std::set<std::string> setOf(const std::string& text) {
  const auto list = words(text);
  return {list.begin(), list.end()};
}

/// What is wrong with the hits that the next run of the application finds.
std::string complaintOfNextRun(const std::string& expected, bool isTwiceAllowed,
                               const std::string& container) {
  ChildProcess nextRun([&] {
    beAlone(container);
    return "hits " + textOf(Flow::hitsOfNextRun(container));
  });
  const std::string found = nextRun.text();
  if (isTwiceAllowed && setOf(found) == setOf(expected)) return "";
  return found == expected ? "" : "the next run finds: " + found + "\n";
}

}  // namespace

Outcome tryOut(const FlowKind& kind, const Fault& fault) {
  const TemporaryDirectory directory;
  const std::string container = directory.path().string();
  sharedNote() = {};
  ChildProcess trial([&] { return runWithFault(kind, fault, container); });
  const std::string text = trial.text();
  const std::size_t line = text.find('\n');
  Outcome outcome{sharedNote().hasFailed, sharedNote().counts, text.substr(line + 1)};
  if (line == std::string::npos) outcome.complaint = "it crashed or hung\n";
  if (text.starts_with("hits ")) {
    outcome.complaint += complaintOfNextRun(
        text.substr(0, line), fault.call == Call::kRemove || fault.isLasting, container);
  }
  if (!outcome.complaint.empty()) outcome.complaint += contentsOf(container + "/log");
  return outcome;
}
