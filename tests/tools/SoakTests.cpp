#include "soak/Judge.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "soak/Vitals.h"

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

Reception got(Time time, int life, unsigned connection, unsigned place, Deed deed = kAnswer,
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
  const std::vector<Event> hit{at(1, kPosting), at(2, kPosted)};
  const Event gone = at(3, kBackgrounding);
  const Event saved = at(4, kBackgrounded);
  const Event late = at(6, kBackgrounding);
  const Rule refused = Rule::kRefusedByDisk;
  const Case kCases[] = {
      {"dropped", Rule::kDroppedByFullQueue, {hit[0], hit[1], at(3, kDropped)}},
      {"not posted", Rule::kEndedWhilePosting, {hit[0]}},
      {"not saved", Rule::kEndedBeforeSave, hit},
      {"the queue ran empty", "lost", hit, {}, {{at(3, kDrained)}}},
      {"saved", "lost", hit, {}, {{gone, at(4, kBackgrounded)}}},
      {"save not finished", Rule::kEndedBeforeSave, hit, {}, {{gone}}},
      {"saved at each change", "lost", hit, {}, {{at(0, kSavesAlways)}}},
      {"shut down", "lost", hit, {}, {{at(3, What::kShutDown)}}},
      {"saved on a broken disk", refused, hit, {}, {{at(1, kDiskFails), gone, saved}}},
      {"saved on a good one, too", "lost", hit, {}, {{gone, saved, at(5, kDiskFails), late}}},
      {"posted to a broken disk", refused, hit, {}, {{at(0, kSavesAlways), at(1, kDiskFails)}}},
      {"posted to a good one", "lost", hit, {}, {{at(0, kSavesAlways), at(3, kDiskFails)}}},
      {"restored", Rule::kRestoredAndEndedBeforeSave, hit, {}, {{}, {}}, true},
      {"restored, and the queue ran empty", "lost", hit, {}, {{}, {at(50, kDrained, 1)}}, true},
      {"waiting", "", hit, {}, {{}}, true},
      {"refused", "", {hit[0], hit[1], at(3, kFailed)}},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict.text) << test.what;
}

TEST(SoakJudge, ExplainsADoubleByWhatWasSeenOfTheHitAlone) {
  const std::string once = textOf(Rule::kSentOnceMore);
  const Event told = at(60, kAnswered);
  const Event toldLater = at(60, kAnswered, 1);
  const Event filing = at(21, kFiled);
  const std::vector<Event> visit{at(20, kBackgrounding), at(22, kBackgrounded)};
  const std::vector<Event> visitAndBack{visit[0], visit[1], at(23, kForegrounding),
                                        at(24, kForegrounded)};
  const std::vector<Event> slowReturn{visit[0], visit[1], visitAndBack[2], at(28, kForegrounded)};
  const std::vector<Event> savesAndReturn{at(0, kSavesAlways), visit[0], visit[1], visitAndBack[2],
                                          at(28, kForegrounded)};
  const Reception again = got(4, 0, 2, 0);
  const Reception closed = got(4, 0, 2, 0, kCloseAfterRead);
  const std::vector<Reception> twoLives{got(3, 0, 1, 0), got(50, 1, 2, 0)};
  const std::vector<Reception> late{got(18, 0, 1, 0), got(50, 1, 2, 0)};
  const std::vector<Reception> later{got(30, 0, 1, 0), got(50, 1, 2, 0)};
  const std::vector<Reception> within{got(24, 0, 1, 0), got(30, 0, 1, 1)};
  const std::vector<Reception> after{got(29, 0, 1, 0), got(30, 0, 1, 1)};
  const std::vector<Event> starts{at(1, kStarting)};
  const std::vector<Event> started{at(1, kStarting), at(2, What::kStarted)};
  const std::vector<Event> broken{at(1, kDiskFails), at(4, kFaultEnds)};
  const std::vector<Event> mended{broken[0], broken[1], at(5, kBackgrounding),
                                  at(6, kBackgrounded)};
  const std::vector<Event> unchanged{at(0, kSavesAlways), broken[0], broken[1], mended[2],
                                     mended[3]};
  const Rule stays = Rule::kFileOfBackgroundStays;
  const Rule onDisk = Rule::kStayedOnDisk;
  const Case kCases[] = {
      {"GET on a kept connection", once, {told}, {got(3, 0, 1, 1, kCloseAfterRead), again}},
      {"POST", "doubled", {told}, {got(3, 0, 1, 1, kCloseAfterRead, true), again}},
      {"a new connection", "doubled", {told}, {got(3, 0, 1, 0, kCloseAfterRead), again}},
      {"part of an answer", "doubled", {told}, {got(3, 0, 1, 1, kResetInAnswer), again}},
      {"a GET that goes a third time",
       once + "doubled",
       {told},
       {got(3, 0, 1, 1, kCloseAfterRead), closed, got(5, 0, 3, 0)}},
      {"not on file", "doubled", {toldLater}, twoLives, {{}, {}}},
      {"on file for no reason", "doubled", {toldLater}, twoLives, {{}, {}}, true},
      {"in flight when saved",
       Rule::kInFlightWhenSaved,
       {at(19, kAnswered), filing, toldLater},
       late,
       {visit, {}},
       true},
      {"sent after the return",
       stays,
       {filing, at(31, kAnswered), toldLater},
       later,
       {visitAndBack, {}},
       true},
      {"sent within the return", stays, {filing, told}, within, {slowReturn}},
      {"saved at a change, sent within the return", stays, {told}, within, {savesAndReturn}},
      {"neither filed nor saved at a change", "doubled", {told}, within, {slowReturn}},
      {"sent twice after the return", "doubled", {filing, told}, after, {visitAndBack}},
      {"saved at each change",
       Rule::kEndedBeforeNextSave,
       {at(4, kAnswered), toldLater},
       twoLives,
       {{at(0, kSavesAlways)}, {}},
       true},
      {"shut down though saved at each change",
       "doubled",
       {at(4, kAnswered), toldLater},
       twoLives,
       {{at(0, kSavesAlways), at(5, What::kShutDown)}, {}},
       true},
      {"within a restore", Rule::kEndedWhileRestoring, {toldLater}, twoLives, {starts, {}}, true},
      {"after a restore", "doubled", {toldLater}, twoLives, {started, {}}, true},
      {"an answer that could not be read",
       once,
       {told},
       {got(3, 0, 1, 1), again},
       {{at(2, kNetworkFails)}}},
      {"one that could", "doubled", {told}, {got(3, 0, 1, 1), again}, {{at(5, kNetworkFails)}}},
      {"on a file that stayed", onDisk, {toldLater}, twoLives, {broken, {}}, true},
      {"on a file that was replaced", "doubled", {toldLater}, twoLives, {mended, {}}, true},
      {"taken and not removed, though shut down",
       onDisk,
       {at(1, kPosting), at(4, kAnswered), toldLater},
       twoLives,
       {{at(1, kDiskFails), at(2, kForegrounding), at(4, kFaultEnds), at(5, What::kShutDown)}, {}},
       true},
      {"saved at each change, of which the disk refused the last",
       Rule::kEndedBeforeNextSave,
       {at(4, kAnswered), toldLater},
       twoLives,
       {unchanged, {}},
       true},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict.text) << test.what;
  // What came before another hit was no longer in flight when the process ended.
  for (const auto& test : {kCases[7], kCases[13]}) {
    EXPECT_EQ(verdictOn(test, true), "doubled") << test.what;
  }
  EXPECT_EQ(verdictOn(*std::rbegin(kCases), true), textOf(onDisk));
}

TEST(SoakJudge, LetsNobodyHaveAnAnswerThatTheServerDidNotGive) {
  const Reception good = got(3, 0, 1, 0);
  const char* const notGiven = "answered though the server did not";
  const Case kCases[] = {
      {"own answer", "", {at(4, kAnswered)}, {good}},
      {"another's answer", "answered by what is not its answer", {at(4, kAnsweredWrong)}, {good}},
      {"before the server had it", notGiven, {at(2, kAnswered), at(4, kAnswered)}, {good}},
      {"an empty one", notGiven, {at(4, kAnsweredEmpty)}, {good}},
      {"an error", "an error was told although it was answered", {at(4, kFailed)}, {good}},
      {"an error for a reset", "", {at(4, kFailed)}, {got(3, 0, 1, 0, kResetAfterRead)}},
      {"an error of this side",
       Rule::kBrokenByFault,
       {at(4, kFailed)},
       {good},
       {{at(2, kNetworkFails)}}},
      {"an error when that was over",
       "an error was told although it was answered",
       {at(4, kFailed)},
       {good},
       {{at(1, kNetworkFails), at(2, kFaultEnds)}}},
      {"nothing", Rule::kInFlightAtTheEnd, {}, {good}},
      {"nothing, and shut down",
       "in flight although the kit was shut down",
       {},
       {good},
       {{at(4, What::kShutDown)}}},
  };
  for (const Case& test : kCases) EXPECT_EQ(verdictOn(test), test.verdict.text) << test.what;
  EXPECT_EQ(verdictOn(kCases[8], true), "came, and the application was told nothing");
  const Case early{"", "", {at(2, kFailed)}, {good}, {{at(1, kNetworkFails)}}};
  EXPECT_EQ(verdictOn(early, true), "") << "told before the server read what was sent";
}

TEST(SoakVitals, TellsWhatGrowsFromTheSecondQuarterToTheLast) {
  const auto growthTo = [](const Vitals::Sample& late, Time seconds = 10) {
    Vitals vitals;
    for (Time time = 0; time < 40; ++time) {
      vitals.add(time * seconds * 1'000'000'000, time < 30 ? Vitals::Sample{50'000, 4, 15} : late);
    }
    return vitals.growth();
  };
  EXPECT_THAT(growthTo({51'000, 4, 15}), testing::IsEmpty());
  EXPECT_THAT(growthTo({50'000, 5, 16}), testing::ElementsAre("threads", "descriptors"));
  EXPECT_THAT(growthTo({50'000, 5, 18}, 1), testing::IsEmpty()) << "in a short run";
  EXPECT_EQ(growthTo({90'000, 3, 9}).size(), Vitals::kIsMemoryJudged ? 1 : 0);
}

}  // namespace
