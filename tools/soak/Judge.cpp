#include "soak/Judge.h"

#include <algorithm>

namespace {

bool isOutcome(What what) { return what >= What::kAnswered && what <= What::kFailed; }

bool isWithoutBody(Deed deed) {
  return deed == Deed::kAnswerEmpty || deed == Deed::kStrayBehind204 ||
         deed == Deed::kLateBehind204;
}

/// Time of the first event of that kind; null if there is none.
std::optional<Time> timeOf(const std::vector<Event>& events, What what) {
  const auto event = std::find_if(events.begin(), events.end(), [what](const Event& candidate) {
    return candidate.what == what;
  });
  return event == events.end() ? std::nullopt : std::optional(event->time);
}

bool happensBetween(const std::vector<Event>& events, What what, Time begin, Time end) {
  return std::any_of(events.begin(), events.end(), [=](const Event& event) {
    return event.what == what && event.time > begin && event.time < end;
  });
}

}  // namespace

const char* textOf(Rule rule) {
  constexpr const char* kTexts[] = {
      "cancelled by the full queue, which makes room for a new hit",
      "the process ended while the hit was being posted",
      "the process ended before a save: hits are saved on going to the background",
      "restored, and the process ended before the next save",
      "the disk refused the save, and the process ended before the next one",
      "a GET goes once more when a kept connection dies before a byte of an answer",
      "in flight when the queue was saved, and restored later",
      "sent after the return from the background, whose file stays until a restore",
      "saved at each change, and the process ended before the save without the hit",
      "the process ended while it restored, before it removed the file",
      "the disk refused to replace or to remove the file that it was in",
      "in flight when the process ended",
      "answered, and the transfer failed by a fault of the system"};
  static_assert(std::size(kTexts) == kRuleCount);
  return kTexts[static_cast<std::size_t>(rule)];
}

Judge::Judge(const History& history) : history_(history) {
  for (const auto& [id, hit] : history.hits) {
    for (const Reception& reception : hit.receptions) {
      receptionsOfLife_[reception.life].push_back(reception.time);
    }
    if (const auto time = timeOf(hit.events, What::kPosted)) {
      postsOfLife_[hit.life].push_back(*time);
    }
  }
  for (auto& [life, times] : receptionsOfLife_) std::sort(times.begin(), times.end());
}

Judge::Verdict Judge::judge(HitID id, const Hit& hit) const {
  Verdict verdict;
  const bool isTold = std::any_of(hit.events.begin(), hit.events.end(),
                                  [](const Event& event) { return isOutcome(event.what); });
  if (!isTold && hit.receptions.empty() && !isWaiting(id)) {
    add(ruleForLoss(id, hit), "lost", verdict);
  }
  for (std::size_t second = 1; second < hit.receptions.size(); ++second) {
    add(ruleForDouble(id, hit, second), "doubled", verdict);
  }
  checkReceptions(hit, isTold, verdict);
  checkAnswers(hit, verdict);
  return verdict;
}

bool Judge::isWaiting(HitID id) const {
  const auto last = std::find_if(history_.lives.rbegin(), history_.lives.rend(),
                                 [](const Life& life) { return life.parent < 0; });
  return last != history_.lives.rend() && last->fileAtEnd.contains(id);
}

void Judge::add(std::optional<Rule> rule, const char* what, Verdict& verdict) {
  if (rule) {
    verdict.rules.push_back(*rule);
  } else {
    verdict.faults.emplace_back(what);
  }
}

// Lost hits.

std::optional<Rule> Judge::ruleForLoss(HitID id, const Hit& hit) const {
  if (timeOf(hit.events, What::kDropped)) return Rule::kDroppedByFullQueue;
  // The life in which it was seen last.
  int number = hit.life;
  for (int later = number + 1; later < static_cast<int>(history_.lives.size()); ++later) {
    if (life(later).fileAtStart.contains(id)) number = later;
  }
  const bool isRestored = number != hit.life;
  const auto posted = timeOf(hit.events, What::kPosted);
  if (!isRestored && !posted) return Rule::kEndedWhilePosting;
  const Time since = isRestored ? 0 : *posted;
  if (happensBetween(life(number).events, What::kDrained, since, kNever)) return std::nullopt;
  if (isSaved(number, since, false)) return std::nullopt;
  if (isSaved(number, since, true)) return Rule::kRefusedByDisk;
  return isRestored ? Rule::kRestoredAndEndedBeforeSave : Rule::kEndedBeforeSave;
}

/// Whether what was queued then must have been saved; where the disk failed only if that is left
/// aside.
bool Judge::isSaved(int number, Time since, bool isWhateverFails, Time until) const {
  const auto isGood = [&](Time begin, Time end) {
    return isWhateverFails || !isFailing(number, What::kDiskFails, begin, end);
  };
  const auto& events = life(number).events;
  if (happensBetween(events, What::kShutDown, since, until)) return true;
  // Where each change is saved, going to the background saves nothing more.
  const Time savesAlways = timeOf(events, What::kSavesAlways).value_or(kNever);
  const auto visits = visitsOf(number);
  const bool hasSaved = std::any_of(visits.begin(), visits.end(), [&](const Visit& visit) {
    return visit.begin > since && visit.begin < savesAlways && visit.end < until &&
           isGood(visit.begin, visit.end);
  });
  if (hasSaved) return true;
  const auto posts = postsOfLife_.find(number);
  if (savesAlways == kNever || posts == postsOfLife_.end()) return false;
  // Restored hits are saved with the first one that is posted.
  return std::any_of(posts->second.begin(), posts->second.end(), [&](Time post) {
    return post >= since && post < until && isGood(post, post);
  });
}

// Hits that came twice.

std::optional<Rule> Judge::ruleForDouble(HitID id, const Hit& hit, std::size_t second) const {
  const Reception& first = hit.receptions[second - 1];
  const Reception& next = hit.receptions[second];
  const bool isSameLife = first.life == next.life;
  if (!isSameLife && !life(first.life).fileAtEnd.contains(id)) return std::nullopt;
  const auto rule =
      isSameLife ? ruleForDoubleOfLife(hit, first, next) : ruleForDoubleOfLives(hit, first, next);
  if (rule) return rule;
  return isOnFaultyDisk(id, hit, first, next) ? std::optional(Rule::kStayedOnDisk) : std::nullopt;
}

std::optional<Rule> Judge::ruleForDoubleOfLife(const Hit& hit, const Reception& first,
                                               const Reception& next) const {
  if (isSentOnceMore(hit, first, next)) return Rule::kSentOnceMore;
  if (isInFlightWhenSaved(hit, first, next)) return Rule::kInFlightWhenSaved;
  if (isOnFileAtReturn(hit, first)) return Rule::kFileOfBackgroundStays;
  return std::nullopt;
}

/// Of a hit that was on file when the first process ended.
std::optional<Rule> Judge::ruleForDoubleOfLives(const Hit& hit, const Reception& first,
                                                const Reception& next) const {
  if (timeOf(life(first.life).events, What::kShutDown)) return std::nullopt;
  if (isRestoring(first)) return Rule::kEndedWhileRestoring;
  if (timeOf(life(first.life).events, What::kSavesAlways)) {
    return isLastOfLife(first) ? std::optional(Rule::kEndedBeforeNextSave) : std::nullopt;
  }
  if (isInFlightWhenSaved(hit, first, next)) return Rule::kInFlightWhenSaved;
  if (isOnStayingFile(hit, first)) return Rule::kFileOfBackgroundStays;
  return std::nullopt;
}

bool Judge::isSentOnceMore(const Hit& hit, const Reception& first, const Reception& next) const {
  const bool isTold = std::any_of(hit.events.begin(), hit.events.end(), [&](const Event& event) {
    return isOutcome(event.what) && event.time > first.time && event.time < next.time &&
           !isBrokenHere(event);
  });
  const bool isBroken = isSilentDeath(first.deed) ||
                        isFailing(first.life, What::kNetworkFails, first.time, next.time);
  return !first.isPost && isBroken && first.place > 0 && next.place == 0 &&
         first.connection != next.connection && !isTold;
}

/// The transfer that runs when the queues are suspended goes on, and what is saved holds it.
bool Judge::isInFlightWhenSaved(const Hit& hit, const Reception& first,
                                const Reception& next) const {
  const auto visits = visitsOf(first.life);
  return std::any_of(visits.begin(), visits.end(), [&](const Visit& visit) {
    const bool isSaved = visit.end == kNever || isFiledIn(hit, visit);
    const bool isRestored =
        next.life == first.life ? next.time > visit.back : !isSavedAfter(visits, visit);
    return isSaved && isRestored && first.time < visit.back && isLastOfLife(first, visit.back);
  });
}

bool Judge::isOnStayingFile(const Hit& hit, const Reception& first) const {
  const auto visits = visitsOf(first.life);
  return std::any_of(visits.begin(), visits.end(), [&](const Visit& visit) {
    return isFiledIn(hit, visit) && first.time > visit.back && !isSavedAfter(visits, visit);
  });
}

/// A return resumes the queue before it restores; a queue that is empty again by then has its file
/// restored at once. Where each change is saved, the file may still hold the last hit that was
/// sent.
bool Judge::isOnFileAtReturn(const Hit& hit, const Reception& first) const {
  const auto savesAlways = timeOf(life(first.life).events, What::kSavesAlways);
  const auto visits = visitsOf(first.life);
  return std::any_of(visits.begin(), visits.end(), [&](const Visit& visit) {
    if (first.time > visit.returned) return false;
    if (first.time > visit.back && isFiledIn(hit, visit)) return true;
    const bool isUnderWay = first.time > visit.back || isLastOfLife(first, visit.back);
    return isUnderWay && savesAlways && *savesAlways < visit.back;
  });
}

bool Judge::isFiledIn(const Hit& hit, const Visit& visit) {
  return happensBetween(hit.events, What::kFiled, visit.begin, visit.end);
}

/// What the hit was in could not be replaced by a file without it, or was taken for a restore.
bool Judge::isOnFaultyDisk(HitID id, const Hit& hit, const Reception& first,
                           const Reception& next) const {
  const Time until = next.life == first.life ? next.time : kNever;
  if (!wasOnFile(id, hit, first.life)) return false;
  const auto spells = spellsOf(first.life, What::kDiskFails);
  return std::any_of(spells.begin(), spells.end(), [&](const Spell& spell) {
    if (spell.begin > until) return false;
    return isTakenWithin(hit, first, spell) ||
           (spell.end > first.time &&
            !isSaved(first.life, std::max(spell.begin, first.time), false, until));
  });
}

/// Whether the hit was on file when a restore took that, which could not be read or removed: then
/// it comes again with the next restore.
bool Judge::isTakenWithin(const Hit& hit, const Reception& first, const Spell& spell) const {
  const bool isPosted = happensBetween(hit.events, What::kPosting, 0, spell.end);
  const bool isQueued = first.time > spell.begin || isLastOfLife(first, spell.begin);
  const bool isFiled = happensBetween(hit.events, What::kFiled, 0, spell.end);
  return isRestoredWithin(first.life, spell.begin, spell.end) && isPosted && (isQueued || isFiled);
}

bool Judge::wasOnFile(HitID id, const Hit& hit, int number) const {
  return life(number).fileAtEnd.contains(id) || timeOf(life(number).events, What::kSavesAlways) ||
         timeOf(hit.events, What::kFiled);
}

bool Judge::isRestoredWithin(int number, Time begin, Time end) const {
  return happensBetween(life(number).events, What::kForegrounding, begin, end);
}

/// A process finds what the one before it left.
bool Judge::isRestoredInTrouble(int number) const {
  const int begin = std::max(number - 2, 0);  // the one before may have forked
  for (int life = begin; life <= number; ++life) {
    for (const Spell& spell : spellsOf(life, What::kDiskFails)) {
      if (isRestoredWithin(life, spell.begin, spell.end)) return true;
    }
  }
  return false;
}

std::vector<Judge::Spell> Judge::spellsOf(int number, What what) const {
  std::vector<Spell> spells;
  for (const Event& event : life(number).events) {
    if (event.what == what) spells.push_back({event.time, kNever});
    const bool isEnd = event.what == What::kFaultEnds && !spells.empty();
    if (isEnd && spells.back().end == kNever) spells.back().end = event.time;
  }
  return spells;
}

bool Judge::isFailing(int number, What what, Time begin, Time end) const {
  const auto spells = spellsOf(number, what);
  return std::any_of(spells.begin(), spells.end(),
                     [=](const Spell& spell) { return spell.begin < end && spell.end > begin; });
}

/// Whether the file of a visit was replaced by a later one's, so that no other process finds it.
bool Judge::isSavedAfter(const std::vector<Visit>& visits, const Visit& visit) {
  return std::any_of(visits.begin(), visits.end(), [&](const Visit& later) {
    return later.begin > visit.begin && later.end != kNever;
  });
}

std::vector<Judge::Visit> Judge::visitsOf(int number) const {
  std::vector<Visit> visits;
  for (const Event& event : life(number).events) {
    if (event.what == What::kBackgrounding) visits.push_back({event.time, kNever, kNever, kNever});
    if (event.what == What::kBackgrounded) visits.back().end = event.time;
    if (event.what == What::kForegrounding) visits.back().back = event.time;
    if (event.what == What::kForegrounded) visits.back().returned = event.time;
  }
  return visits;
}

/// Whether the process was within a restore, from which it did not return.
bool Judge::isRestoring(const Reception& reception) const {
  bool isOpen = false;
  Time begin = kNever;
  for (const Event& event : life(reception.life).events) {
    const bool begins = event.what == What::kStarting || event.what == What::kForegrounding;
    const bool ends = event.what == What::kStarted || event.what == What::kForegrounded;
    if (begins) begin = event.time;
    if (begins || ends) isOpen = begins;
  }
  return isOpen && reception.time > begin;
}

bool Judge::isLastOfLife(const Reception& reception, Time before) const {
  const auto& times = receptionsOfLife_.at(reception.life);
  const auto next = std::upper_bound(times.begin(), times.end(), reception.time);
  return next == times.end() || *next >= before;
}

// Answers and errors.

void Judge::checkReceptions(const Hit& hit, bool isTold, Verdict& verdict) const {
  for (std::size_t place = 0; place < hit.receptions.size(); ++place) {
    const Reception& reception = hit.receptions[place];
    const bool isLast = place + 1 == hit.receptions.size();
    const bool isFollowed = !isLast && hit.receptions[place + 1].life == reception.life;
    if (!reception.hasOwnBody) verdict.faults.emplace_back("came with another hit's body");
    if (isFollowed || isToldAfter(hit, reception)) continue;
    if (!isLastOfLife(reception)) {
      verdict.faults.emplace_back("came, and the application was told nothing");
    } else if (timeOf(life(reception.life).events, What::kShutDown)) {
      verdict.faults.emplace_back("in flight although the kit was shut down");
    } else if (isLast && !isTold) {
      verdict.rules.push_back(Rule::kInFlightAtTheEnd);
    }
  }
}

/// A transfer that breaks on this side may be told of before the server reads what had been sent.
bool Judge::isBrokenHere(const Event& event) const {
  return event.what == What::kFailed &&
         isFailing(event.life, What::kNetworkFails, event.time, event.time);
}

bool Judge::isToldAfter(const Hit& hit, const Reception& reception) const {
  return std::any_of(hit.events.begin(), hit.events.end(), [&](const Event& event) {
    if (!isOutcome(event.what) || event.life != reception.life) return false;
    return event.time > reception.time || isBrokenHere(event);
  });
}

/// Each answer that an application got is one that the server gave to this very hit.
void Judge::checkAnswers(const Hit& hit, Verdict& verdict) const {
  auto given = hit.receptions;
  for (const Event& event : hit.events) {
    if (event.what == What::kAnsweredWrong) {
      verdict.faults.emplace_back("answered by what is not its answer");
    }
    if (event.what == What::kFailed) checkError(given, event, verdict);
    if (event.what != What::kAnswered && event.what != What::kAnsweredEmpty) continue;
    const auto answer = std::find_if(given.begin(), given.end(), [&](const Reception& reception) {
      return reception.life == event.life && reception.time < event.time &&
             isAnswer(reception.deed) &&
             isWithoutBody(reception.deed) == (event.what == What::kAnsweredEmpty);
    });
    if (answer == given.end()) {
      verdict.faults.emplace_back("answered though the server did not");
    } else {
      given.erase(answer);
    }
  }
}

/// The last that the server did to the hit before the error was told is no answer, or the transfer
/// broke on this side.
void Judge::checkError(const std::vector<Reception>& receptions, const Event& event,
                       Verdict& verdict) const {
  const Reception* last = nullptr;
  for (const Reception& reception : receptions) {
    if (reception.life == event.life && reception.time < event.time) last = &reception;
  }
  if (last == nullptr || !isAnswer(last->deed)) return;
  if (isFailing(event.life, What::kNetworkFails, last->time, event.time)) {
    verdict.rules.push_back(Rule::kBrokenByFault);
  } else {
    verdict.faults.emplace_back("an error was told although it was answered");
  }
}

std::vector<std::string> Judge::faultsOfLives() const {
  std::vector<std::string> faults;
  for (std::size_t number = 0; number < history_.lives.size(); ++number) {
    const Life& process = history_.lives[number];
    const auto add = [&](const std::string& what) {
      faults.push_back("process " + std::to_string(number) + " (" + process.ending + "): " + what);
    };
    if (!process.endedAsPlanned) add("ended otherwise than planned: " + process.log);
    if (timeOf(process.events, What::kStuck)) add("hits, or a forked process, came to no end");
    // What could not be removed when it was restored is there beside what is saved then.
    if (isRestoredInTrouble(static_cast<int>(number))) continue;
    for (const HitID hit : process.twiceInFile) {
      add("its file held hit " + std::to_string(hit) + " twice");
    }
  }
  return faults;
}
