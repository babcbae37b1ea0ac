#include "soak/Judge.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using enum What;
using enum Deed;

constexpr HitID kHit = 7;

/// The texts of the rules and faults that a verdict is made of.
struct Verdict {
  Verdict(const char* itsText) : text(itsText) {}
  Verdict(std::string itsText) : text(std::move(itsText)) {}
  Verdict(Rule rule) : text(textOf(rule)) {}
  std::string text;
};

struct Case {
  const char* what;
  Verdict verdict;
  std::vector<Event> hit;
  std::vector<Reception> receptions = {};
  std::vector<std::vector<Event>> lives = {{}};  // what each process says of itself
  bool isOnFile = false;                         // when the first process had ended
};

Event at(Time time, What what, int life = 0) { return {time, life, what}; }

Reception got(Time time, int life, unsigned connection, unsigned place, Deed deed = answer,
              bool isPost = false) {
  return {kHit, time, life, connection, place, deed, isPost, true};
}

/// `isFollowed`: the server got another hit from the first process, later than this one.
std::string verdictOn(const Case& test, bool isFollowed = false) {
  History history;
  history.hits[kHit] = {0, test.hit, test.receptions};
  if (isFollowed) history.hits[kHit + 1] = {0, {}, {got(39, 0, 9, 9)}};
  for (const auto& events : test.lives) {
    history.lives.emplace_back();
    history.lives.back().events = events;
  }
  if (test.isOnFile) {
    history.lives.front().fileAtEnd.insert(kHit);
    if (history.lives.size() > 1) history.lives[1].fileAtStart.insert(kHit);
  }
  const auto verdict = Judge(history).judge(kHit, history.hits[kHit]);
  std::string text;
  for (const Rule rule : verdict.rules) text += textOf(rule);
  for (const auto& fault : verdict.faults) text += fault;
  return text;
}

TEST(SoakJudge, ExplainsALossByWhatWasSeenOfTheHitAlone) {
  const std::vector<Event> hit{at(1, posting), at(2, posted)};
  const Event gone = at(3, backgrounding);
  const Case kCases[] = {
      {"dropped", Rule::droppedByFullQueue, {hit[0], hit[1], at(3, dropped)}},
      {"not posted", Rule::endedWhilePosting, {hit[0]}},
      {"not saved", Rule::endedBeforeSave, hit},
      {"the queue ran empty", "lost", hit, {}, {{at(3, drained)}}},
      {"saved", "lost", hit, {}, {{gone, at(4, backgrounded)}}},
      {"save not finished", Rule::endedBeforeSave, hit, {}, {{gone}}},
      {"saved at each change", "lost", hit, {}, {{at(0, savesAlways)}}},
      {"restored", Rule::restoredAndEndedBeforeSave, hit, {}, {{}, {}}, true},
      {"restored, and the queue ran empty", "lost", hit, {}, {{}, {at(50, drained, 1)}}, true},
      {"waiting", "", hit, {}, {{}}, true},
      {"refused", "", {hit[0], hit[1], at(3, failed)}},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict.text) << test.what;
}

TEST(SoakJudge, ExplainsADoubleByWhatWasSeenOfTheHitAlone) {
  const std::string once = textOf(Rule::sentOnceMore);
  const Event told = at(60, answered);
  const Event toldLater = at(60, answered, 1);
  const Event filing = at(21, filed);
  const std::vector<Event> visit{at(20, backgrounding), at(22, backgrounded)};
  const std::vector<Event> visitAndBack{visit[0], visit[1], at(23, foregrounding),
                                        at(24, foregrounded)};
  const std::vector<Event> slowReturn{visit[0], visit[1], visitAndBack[2], at(28, foregrounded)};
  const std::vector<Event> savesAndReturn{at(0, savesAlways), visit[0], visit[1], visitAndBack[2],
                                          at(28, foregrounded)};
  const Reception again = got(4, 0, 2, 0);
  const Reception closed = got(4, 0, 2, 0, closeAfterRead);
  const std::vector<Reception> twoLives{got(3, 0, 1, 0), got(50, 1, 2, 0)};
  const std::vector<Reception> late{got(18, 0, 1, 0), got(50, 1, 2, 0)};
  const std::vector<Reception> later{got(30, 0, 1, 0), got(50, 1, 2, 0)};
  const std::vector<Reception> within{got(24, 0, 1, 0), got(30, 0, 1, 1)};
  const std::vector<Reception> after{got(29, 0, 1, 0), got(30, 0, 1, 1)};
  const std::vector<Event> starts{at(1, starting)};
  const std::vector<Event> started{at(1, starting), at(2, What::started)};
  const Rule stays = Rule::fileOfBackgroundStays;
  const Case kCases[] = {
      {"GET on a kept connection", once, {told}, {got(3, 0, 1, 1, closeAfterRead), again}},
      {"POST", "doubled", {told}, {got(3, 0, 1, 1, closeAfterRead, true), again}},
      {"a new connection", "doubled", {told}, {got(3, 0, 1, 0, closeAfterRead), again}},
      {"part of an answer", "doubled", {told}, {got(3, 0, 1, 1, resetInAnswer), again}},
      {"a GET that goes a third time",
       once + "doubled",
       {told},
       {got(3, 0, 1, 1, closeAfterRead), closed, got(5, 0, 3, 0)}},
      {"not on file", "doubled", {toldLater}, twoLives, {{}, {}}},
      {"on file for no reason", "doubled", {toldLater}, twoLives, {{}, {}}, true},
      {"in flight when saved",
       Rule::inFlightWhenSaved,
       {at(19, answered), filing, toldLater},
       late,
       {visit, {}},
       true},
      {"sent after the return",
       stays,
       {filing, at(31, answered), toldLater},
       later,
       {visitAndBack, {}},
       true},
      {"sent within the return", stays, {filing, told}, within, {slowReturn}},
      {"saved at a change, sent within the return", stays, {told}, within, {savesAndReturn}},
      {"neither filed nor saved at a change", "doubled", {told}, within, {slowReturn}},
      {"sent twice after the return", "doubled", {filing, told}, after, {visitAndBack}},
      {"saved at each change",
       Rule::endedBeforeNextSave,
       {at(4, answered), toldLater},
       twoLives,
       {{at(0, savesAlways)}, {}},
       true},
      {"within a restore", Rule::endedWhileRestoring, {toldLater}, twoLives, {starts, {}}, true},
      {"after a restore", "doubled", {toldLater}, twoLives, {started, {}}, true},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict.text) << test.what;
  // What came before another hit was no longer in flight when the process ended.
  for (const auto& test : {kCases[7], kCases[13]}) {
    EXPECT_EQ(verdictOn(test, true), "doubled") << test.what;
  }
}

TEST(SoakJudge, LetsNobodyHaveAnAnswerThatTheServerDidNotGive) {
  const Reception good = got(3, 0, 1, 0);
  const char* const notGiven = "answered though the server did not";
  const Case kCases[] = {
      {"own answer", "", {at(4, answered)}, {good}},
      {"another's answer", "answered by what is not its answer", {at(4, answeredWrong)}, {good}},
      {"before the server had it", notGiven, {at(2, answered), at(4, answered)}, {good}},
      {"an empty one", notGiven, {at(4, answeredEmpty)}, {good}},
      {"an error", "an error was told although it was answered", {at(4, failed)}, {good}},
      {"an error for a reset", "", {at(4, failed)}, {got(3, 0, 1, 0, resetAfterRead)}},
      {"nothing", Rule::inFlightAtTheEnd, {}, {good}},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict.text) << test.what;
  EXPECT_EQ(verdictOn(kCases[6], true), "came, and the application was told nothing");
}

}  // namespace
