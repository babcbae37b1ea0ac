#include "soak/Report.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace {

constexpr std::uint64_t kShownOfEach = 3;

void printLine(const char* text, std::uint64_t count) {
  std::printf("  %-78s %8" PRIu64 "\n", text, count);
}

bool has(const Hit& hit, What what) {
  return std::any_of(hit.events.begin(), hit.events.end(),
                     [what](const Event& event) { return event.what == what; });
}

}  // namespace

void Report::add(const History& history) {
  const Judge judge(history);
  processes_ += history.lives.size();
  for (const auto& [id, hit] : history.hits) addHit(judge, history, id, hit);
  for (const std::string& fault : judge.faultsOfLives()) addFault(fault, "");
}

void Report::add(const Vitals& vitals) {
  early_ = vitals.early();
  late_ = vitals.late();
  for (const std::string& name : vitals.growth())
    addFault("the process that lasts grew in " + name, "");
}

void Report::addHit(const Judge& judge, const History& history, HitID id, const Hit& hit) {
  const bool isAnswered = has(hit, What::kAnswered) || has(hit, What::kAnsweredEmpty);
  const bool isFailed = !isAnswered && has(hit, What::kFailed);
  ++posted_;
  receivedOnce_ += hit.receptions.size() == 1;
  receivedMore_ += hit.receptions.size() > 1;
  answered_ += isAnswered;
  failed_ += isFailed;
  failedUnreceived_ += isFailed && hit.receptions.empty();
  waiting_ += judge.isWaiting(id);
  const Judge::Verdict verdict = judge.judge(id, hit);
  for (const Rule rule : verdict.rules) {
    ++rules_[static_cast<std::size_t>(rule)];
    lost_ += rule <= Rule::kRefusedByDisk;
  }
  for (const std::string& fault : verdict.faults) {
    addFault(fault, "hit " + std::to_string(id) + " " + fault + ":\n" + historyOf(hit, history));
  }
}

void Report::addFault(const std::string& kind, const std::string& text) {
  // A few of each kind say more than many of one.
  const std::uint64_t count = ++faults_[kind];
  if (count <= kShownOfEach && !text.empty()) shown_ += text;
}

void Report::printRules(const char* title, Rule first, Rule last) const {
  std::printf("%s\n", title);
  for (int rule = static_cast<int>(first); rule <= static_cast<int>(last); ++rule) {
    printLine(textOf(static_cast<Rule>(rule)), rules_[static_cast<std::size_t>(rule)]);
  }
}

bool Report::print() const {
  std::printf("Totals\n");
  printLine("processes", processes_);
  printLine("hits posted", posted_);
  printLine("received by the server once", receivedOnce_);
  printLine("received more than once", receivedMore_);
  printLine("answered", answered_);
  printLine("failed, and the application was told", failed_);
  printLine("  of these never received by the server", failedUnreceived_);
  printLine("lost by a rule", lost_);
  printLine("waiting in a file at the end", waiting_);
  printRules("Lost", Rule::kDroppedByFullQueue, Rule::kRefusedByDisk);
  printRules("Received more than once", Rule::kSentOnceMore, Rule::kStayedOnDisk);
  printRules("Received, without an outcome", Rule::kInFlightAtTheEnd, Rule::kInFlightAtTheEnd);
  printRules("Told as an error although it was answered", Rule::kBrokenByFault,
             Rule::kBrokenByFault);
  std::printf("The process that lasts, in the second and in the last quarter of the time\n");
  for (std::size_t i = 0; i < early_.size(); ++i) {
    std::printf("  %-69s %8ld %8ld\n", Vitals::kNames[i], early_[i], late_[i]);
  }
  std::printf("Without a rule\n");
  for (const auto& [kind, count] : faults_) printLine(kind.c_str(), count);
  if (faults_.empty()) printLine("(nothing)", 0);
  std::fputs(shown_.c_str(), stdout);
  return faults_.empty();
}
