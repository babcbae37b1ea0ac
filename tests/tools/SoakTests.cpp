#include "soak/Judge.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr HitID kHit = 7;

struct Case {
  const char* what;
  std::vector<Event> hit;
  std::vector<Reception> receptions;
  std::vector<std::vector<Event>> lives;  // what each process says of itself
  bool isOnFile;                          // when the first process had ended
  std::string verdict;
};

const std::string kDoubled = "doubled";
const std::string kLost = "lost";

Event at(Time time, What what, int life = 0) { return {time, life, what}; }

Reception got(Time time, int life, unsigned connection, unsigned place, Deed deed = Deed::answer,
              bool isPost = false) {
  return {kHit, time, life, connection, place, deed, isPost, true};
}

/// The texts of the rules and faults. `isFollowed`: the server got another hit from the first
/// process, later than this one.
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
  const Event posting = at(1, What::posting);
  const Event posted = at(2, What::posted);
  const Case kCases[] = {
      {"dropped",
       {posting, posted, at(3, What::dropped)},
       {},
       {{}},
       false,
       textOf(Rule::droppedByFullQueue)},
      {"not posted", {posting}, {}, {{}}, false, textOf(Rule::endedWhilePosting)},
      {"not saved", {posting, posted}, {}, {{}}, false, textOf(Rule::endedBeforeSave)},
      {"the queue ran empty", {posting, posted}, {}, {{at(3, What::drained)}}, false, kLost},
      {"saved",
       {posting, posted},
       {},
       {{at(3, What::backgrounding), at(4, What::backgrounded)}},
       false,
       kLost},
      {"save not finished",
       {posting, posted},
       {},
       {{at(3, What::backgrounding)}},
       false,
       textOf(Rule::endedBeforeSave)},
      {"saved at each change", {posting, posted}, {}, {{at(0, What::savesAlways)}}, false, kLost},
      {"restored", {posting, posted}, {}, {{}, {}}, true, textOf(Rule::restoredAndEndedBeforeSave)},
      {"restored, and the queue ran empty",
       {posting, posted},
       {},
       {{}, {at(50, What::drained, 1)}},
       true,
       kLost},
      {"waiting", {posting, posted}, {}, {{}}, true, ""},
      {"refused", {posting, posted, at(3, What::failed)}, {}, {{}}, false, ""},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict) << test.what;
}

TEST(SoakJudge, ExplainsADoubleByWhatWasSeenOfTheHitAlone) {
  const Event answered = at(60, What::answered);
  const Event answeredLater = at(60, What::answered, 1);
  const std::vector<Event> visit{at(20, What::backgrounding), at(22, What::backgrounded)};
  const std::vector<Event> visitAndBack{visit[0], visit[1], at(23, What::foregrounding),
                                        at(24, What::foregrounded)};
  const Event filed = at(21, What::filed);
  const Case kCases[] = {
      {"GET on a kept connection",
       {answered},
       {got(3, 0, 1, 1, Deed::closeAfterRead), got(4, 0, 2, 0)},
       {{}},
       false,
       textOf(Rule::sentOnceMore)},
      {"POST",
       {answered},
       {got(3, 0, 1, 1, Deed::closeAfterRead, true), got(4, 0, 2, 0)},
       {{}},
       false,
       kDoubled},
      {"a new connection",
       {answered},
       {got(3, 0, 1, 0, Deed::closeAfterRead), got(4, 0, 2, 0)},
       {{}},
       false,
       kDoubled},
      {"part of an answer",
       {answered},
       {got(3, 0, 1, 1, Deed::resetInAnswer), got(4, 0, 2, 0)},
       {{}},
       false,
       kDoubled},
      {"a GET that goes a third time",
       {answered},
       {got(3, 0, 1, 1, Deed::closeAfterRead), got(4, 0, 2, 0, Deed::closeAfterRead),
        got(5, 0, 3, 0)},
       {{}},
       false,
       textOf(Rule::sentOnceMore) + kDoubled},
      {"not on file",
       {answeredLater},
       {got(3, 0, 1, 0), got(50, 1, 2, 0)},
       {{}, {}},
       false,
       kDoubled},
      {"on file for no reason",
       {answeredLater},
       {got(3, 0, 1, 0), got(50, 1, 2, 0)},
       {{}, {}},
       true,
       kDoubled},
      {"in flight when saved",
       {at(19, What::answered), filed, answeredLater},
       {got(18, 0, 1, 0), got(50, 1, 2, 0)},
       {visit, {}},
       true,
       textOf(Rule::inFlightWhenSaved)},
      {"sent after the return",
       {filed, at(31, What::answered), answeredLater},
       {got(30, 0, 1, 0), got(50, 1, 2, 0)},
       {visitAndBack, {}},
       true,
       textOf(Rule::fileOfBackgroundStays)},
      {"sent within the return",
       {filed, answered},
       {got(24, 0, 1, 0), got(30, 0, 1, 1)},
       {{visit[0], visit[1], at(23, What::foregrounding), at(28, What::foregrounded)}},
       false,
       textOf(Rule::fileOfBackgroundStays)},
      {"saved at a change, and sent within the return",
       {answered},
       {got(24, 0, 1, 0), got(30, 0, 1, 1)},
       {{at(0, What::savesAlways), visit[0], visit[1], at(23, What::foregrounding),
         at(28, What::foregrounded)}},
       false,
       textOf(Rule::fileOfBackgroundStays)},
      {"neither filed nor saved at a change",
       {answered},
       {got(24, 0, 1, 0), got(30, 0, 1, 1)},
       {{visit[0], visit[1], at(23, What::foregrounding), at(28, What::foregrounded)}},
       false,
       kDoubled},
      {"sent twice after the return",
       {filed, answered},
       {got(29, 0, 1, 0), got(30, 0, 1, 1)},
       {visitAndBack},
       false,
       kDoubled},
      {"saved at each change",
       {at(4, What::answered), answeredLater},
       {got(3, 0, 1, 0), got(50, 1, 2, 0)},
       {{at(0, What::savesAlways)}, {}},
       true,
       textOf(Rule::endedBeforeNextSave)},
      {"within a restore",
       {answeredLater},
       {got(3, 0, 1, 0), got(50, 1, 2, 0)},
       {{at(1, What::starting)}, {}},
       true,
       textOf(Rule::endedWhileRestoring)},
      {"after a restore",
       {answeredLater},
       {got(3, 0, 1, 0), got(50, 1, 2, 0)},
       {{at(1, What::starting), at(2, What::started)}, {}},
       true,
       kDoubled},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict) << test.what;
  // What came before another hit was no longer in flight when the process ended.
  for (const auto& test : {kCases[7], kCases[11]}) {
    EXPECT_EQ(verdictOn(test, true), kDoubled) << test.what;
  }
}

TEST(SoakJudge, LetsNobodyHaveAnAnswerThatTheServerDidNotGive) {
  const Reception good = got(3, 0, 1, 0);
  const Case kCases[] = {
      {"own answer", {at(4, What::answered)}, {good}, {{}}, false, ""},
      {"another's answer",
       {at(4, What::answeredWrong)},
       {good},
       {{}},
       false,
       "answered by what is not its answer"},
      {"before the server had it",
       {at(2, What::answered), at(4, What::answered)},
       {good},
       {{}},
       false,
       "answered though the server did not"},
      {"an empty one",
       {at(4, What::answeredEmpty)},
       {good},
       {{}},
       false,
       "answered though the server did not"},
      {"an error",
       {at(4, What::failed)},
       {good},
       {{}},
       false,
       "an error was told although it was answered"},
      {"an error for a reset",
       {at(4, What::failed)},
       {got(3, 0, 1, 0, Deed::resetAfterRead)},
       {{}},
       false,
       ""},
      {"nothing", {}, {good}, {{}}, false, textOf(Rule::inFlightAtTheEnd)},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict) << test.what;
  EXPECT_EQ(verdictOn(kCases[6], true), "came, and the application was told nothing");
}

}  // namespace
