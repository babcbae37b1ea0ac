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
  kRefusedByDisk,
  // Doubled:
  kSentOnceMore,
  kInFlightWhenSaved,
  kFileOfBackgroundStays,
  kEndedBeforeNextSave,
  kEndedWhileRestoring,
  kStayedOnDisk,
  // Without an outcome:
  kInFlightAtTheEnd,
  // Told as an error although it was answered:
  kBrokenByFault,
};
constexpr int kRuleCount = 13;
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
  bool isSaved(int number, Time since, bool isWhateverFails, Time until = kNever) const;
  bool isOnFaultyDisk(HitID id, const Hit& hit, const Reception& first,
                      const Reception& next) const;
  bool wasOnFile(HitID id, const Hit& hit, int number) const;
  bool isRestoredInTrouble(int number) const;
  bool isRestoredWithin(int number, Time begin, Time end) const;
  std::optional<Rule> ruleForDouble(HitID id, const Hit& hit, std::size_t second) const;
  std::optional<Rule> ruleForDoubleOfLife(const Hit& hit, const Reception& first,
                                          const Reception& next) const;
  std::optional<Rule> ruleForDoubleOfLives(const Hit& hit, const Reception& first,
                                           const Reception& next) const;
  bool isSentOnceMore(const Hit& hit, const Reception& first, const Reception& next) const;
  bool isInFlightWhenSaved(const Hit& hit, const Reception& first, const Reception& next) const;
  bool isOnStayingFile(const Hit& hit, const Reception& first) const;
  bool isOnFileAtReturn(const Hit& hit, const Reception& first) const;
  static bool isFiledIn(const Hit& hit, const Visit& visit);
  static bool isSavedAfter(const std::vector<Visit>& visits, const Visit& visit);
  std::vector<Visit> visitsOf(int number) const;
  /// A time for which calls failed.
  struct Spell {
    Time begin;
    Time end;
  };
  std::vector<Spell> spellsOf(int number, What what) const;
  bool isTakenWithin(const Hit& hit, const Reception& first, const Spell& spell) const;
  bool isFailing(int number, What what, Time begin, Time end) const;
  bool isRestoring(const Reception& reception) const;
  bool isLastOfLife(const Reception& reception, Time before = kNever) const;

  void checkReceptions(const Hit& hit, bool isTold, Verdict& verdict) const;
  bool isBrokenHere(const Event& event) const;
  bool isToldAfter(const Hit& hit, const Reception& reception) const;
  void checkAnswers(const Hit& hit, Verdict& verdict) const;
  void checkError(const std::vector<Reception>& receptions, const Event& event,
                  Verdict& verdict) const;
  static void add(std::optional<Rule> rule, const char* what, Verdict& verdict);

  const Life& life(int number) const { return history_.lives[static_cast<std::size_t>(number)]; }

  const History& history_;
  std::map<int, std::vector<Time>> receptionsOfLife_;  // sorted
  std::map<int, std::vector<Time>> postsOfLife_;
};
