#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "soak/History.h"

/// The stated rules by which a hit may be lost, come twice, or have no outcome.
enum class Rule {
  // Lost:
  kDroppedByFullQueue,
  kEndedWhilePosting,
  kEndedBeforeSave,
  kRestoredAndEndedBeforeSave,
  // Doubled:
  kSentOnceMore,
  kInFlightWhenSaved,
  kFileOfBackgroundStays,
  kEndedBeforeNextSave,
  kEndedWhileRestoring,
  // Without an outcome:
  kInFlightAtTheEnd,
};
constexpr int kRuleCount = 10;
const char* textOf(Rule rule);

/// Judges the hits of one lane. A rule is found from what was seen of the hit itself, never by
/// exclusion: what no rule explains is a fault.
class Judge {
 public:
  explicit Judge(const History& history);

  struct Verdict {
    std::vector<Rule> rules;
    std::vector<std::string> faults;
  };
  Verdict judge(HitID id, const Hit& hit) const;
  /// Whether the hit is in the file that the last process left.
  bool isWaiting(HitID id) const;
  /// What is wrong with processes, not with hits.
  std::vector<std::string> faultsOfLives() const;

 private:
  /// One visit to the background: entering it begins and ends, then leaving it does. What did not
  /// come about before the process ended is kNever.
  struct Visit {
    Time begin;
    Time end;
    Time back;
    Time returned;
  };
  static constexpr Time kNever = INT64_MAX;

  std::optional<Rule> ruleForLoss(HitID id, const Hit& hit) const;
  bool isSaved(int number, Time since, bool isRestored) const;
  std::optional<Rule> ruleForDouble(HitID id, const Hit& hit, std::size_t second) const;
  static bool isSentOnceMore(const Hit& hit, const Reception& first, const Reception& next);
  bool isInFlightWhenSaved(const Hit& hit, const Reception& first, const Reception& next) const;
  bool isOnStayingFile(const Hit& hit, const Reception& first) const;
  bool isOnFileAtReturn(const Hit& hit, const Reception& first) const;
  static bool isFiledIn(const Hit& hit, const Visit& visit);
  static bool isSavedAfter(const std::vector<Visit>& visits, const Visit& visit);
  std::vector<Visit> visitsOf(int number) const;
  bool isRestoring(const Reception& reception) const;
  bool isLastOfLife(const Reception& reception, Time before = kNever) const;

  void checkReceptions(const Hit& hit, bool isTold, Verdict& verdict) const;
  static bool isToldAfter(const Hit& hit, const Reception& reception);
  static void checkAnswers(const Hit& hit, Verdict& verdict);
  static bool isAnsweredBefore(const std::vector<Reception>& receptions, const Event& event);
  static void add(std::optional<Rule> rule, const char* what, Verdict& verdict);

  const Life& life(int number) const { return history_.lives[static_cast<std::size_t>(number)]; }

  const History& history_;
  std::map<int, std::vector<Time>> receptionsOfLife_;  // sorted
  std::map<int, Time> firstPostOfLife_;
};
