#include "tests/support/ConfigurationTest.h"
#include "tests/support/HTTPServer.h"
#include "tests/support/Test.h"

namespace {

std::string version(const std::string& number) { return "{\"v\": " + number + "}"; }

class QVConfigurationUpdateTest : public ConfigurationTest {
 protected:
  static std::string warnings(const std::string& before, const std::string& after) {
    return "Either the offline or the new configuration is not valid\nSaved one: " + before +
           "\nNew one: " + after + "\n";
  }
  static void answer(const std::string& name, const Dictionary& userInfo) {
    NotificationCenter::defaultCenter()->postNotification(
        Notification(kQVNotification_ConfigurationResponse + String(name), nullptr, userInfo));
  }
};

TEST_F(QVConfigurationUpdateTest, ReplacesTheOfflineCopyByAHigherVersionOnly) {
  const std::tuple<const char*, const char*, bool, std::int32_t> cases[] = {
      {"3", "3", false, 0},  // equal texts are not even read
      {"{", "{", false, 0},
      {"3", "3.0", false, 3},
      {"3", "4", true, 4},
      {"5", "4", false, 5},
      {"0", "-1", false, 0},
      {"-2", "-1", true, -1},
      {"1.9", "1.1", false, 1},
      {"9", "\"10\"", true, 10},
      {"\"v9\"", "1", true, 1},
      {"1", "[2]", false, 1},
      {"2147483647", "2147483648", false, 2147483647},
  };
  for (const auto& [before, after, isReplaced, expected] : cases) {
    const String oldText(version(before));
    const String newText(version(after));
    const auto file = bareFile<SpecialisedFile>("n", "v");
    save("n", oldText);
    EXPECT_EQ(printed([&] { file->updateConfigurationFromOldConfToNew(oldText, newText); }), "");
    EXPECT_EQ(saved("n"), isReplaced ? newText : oldText) << before << " " << after;
    EXPECT_EQ(file->version(), expected) << before << " " << after;
    std::vector<SpecialisedFile::Update> updates;
    if (isReplaced) updates.push_back({oldText, newText, newText, expected});
    EXPECT_EQ(file->updates, updates) << before << " " << after;
  }
}

TEST_F(QVConfigurationUpdateTest, TakesWhatItCannotReadForVersionZeroAndWarns) {
  const std::string missing = "Error getting branch in JSON: v\n";
  const std::tuple<std::string, std::string, bool, std::int32_t, std::string> cases[] = {
      {version("5"), "{", false, 5, missing}, {"{", version("2"), true, 2, missing},
      {version("-1"), "{", true, 0, missing}, {"{", "[", false, 0, missing + missing},
      {version("1"), "", false, 1, missing},
  };
  for (const auto& [before, after, isReplaced, expected, lines] : cases) {
    const auto file = bareFile<SpecialisedFile>("n", "v");
    file->isThrowing = true;  // which ends neither the update nor its lines
    save("n", before);
    EXPECT_EQ(printed([&, &from = before, &to = after] {
                file->updateConfigurationFromOldConfToNew(from, to);
              }),
              lines + warnings(before, after));
    EXPECT_EQ(saved("n"), String(isReplaced ? after : before));
    EXPECT_EQ(file->version(), expected) << before << " " << after;
  }
}

TEST_F(QVConfigurationUpdateTest, KeepsTheFirstCopyWithoutAVersionPath) {
  const auto file = bareFile("n");
  for (const char* number : {"1", "2"}) {
    file->onNotificationReceived(Notification(kQVNotification_ConfigurationResponse + String("n"),
                                              nullptr, {{"content", version(number)}}));
  }
  EXPECT_EQ(saved("n"), String(version("1")));
}

TEST_F(QVConfigurationUpdateTest, ActsOnItsOwnAnswersOnly) {
  QVDebug::blockHits(true);
  const auto file = std::make_shared<QVConfigurationFile>();
  file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n");
  for (const char* name : {"", "N", "nn", "m", " n"}) answer(name, {{"content", version("1")}});
  file->onNotificationReceived(Notification("n", nullptr, {{"content", version("1")}}));
  EXPECT_TRUE(saved("n").isNull());

  const std::string overlong((std::size_t{32} << 20) + 1, ' ');
  EXPECT_EQ(printed([&] {
              answer("n", {{"content", overlong}});
            }),
            "Configuration n is too large to be read\n");
  EXPECT_TRUE(saved("n").isNull());
  answer("n", {{"content", ""}});
  EXPECT_EQ(saved("n"), String(""));
  answer("n", {{"content", "{ broken"}});
  EXPECT_EQ(saved("n"), String("{ broken")) << "an empty copy counts as none";
  answer("n", nullptr);
  answer("n", {{"content", 7}});
  EXPECT_EQ(saved("n"), String("{ broken"));
  answer("n", {{"content", version("1")}});
  EXPECT_EQ(saved("n"), String(version("1")));
}

TEST_F(QVConfigurationUpdateTest, FollowsTheCollectorUpwardsOnly) {
  const std::string large = R"({"v": 3, "text": ")" + std::string(5'000'000, 'x') + R"("})";
  const struct {
    int status;
    std::string text;
    int version;  // of the copy afterwards
  } downloads[] = {
      {200, version("2"), 2}, {304, "", 2},           {200, version("1"), 2},
      {200, "{ broken", 2},   {404, version("9"), 2}, {200, large, 3},
  };
  std::atomic<std::size_t> turn = 0;
  HTTPServer server([&](const auto&, auto& response) {
    response.status = downloads[turn].status;
    response.set_content(downloads[turn].text, "application/json");
  });
  save("n", version("0"));
  ship("n", version("1"));
  const auto file = std::make_shared<SpecialisedFile>();
  file->isThrowing = true;
  file->setFilenameVersionPathAndURL("n", "v", server.url());
  for (; turn < std::size(downloads); ++turn) {
    if (turn > 0) file->downloadConfigurationUpdate();
    ASSERT_TRUE(waitForDownloads());
    EXPECT_EQ(server.requests().size(), turn + 1);
    EXPECT_EQ(file->getJsonLeafFromPath("v"), Value(downloads[turn].version)) << turn;
  }
}

TEST_F(QVConfigurationUpdateTest, MayBeReleasedWhileAnswersCome) {
  QVDebug::blockHits(true);
  QVDebug::setDebugLevel(6);
  std::atomic<bool> isOver{false};
  std::thread poster([&] {
    for (int i = 0; !isOver; ++i) answer("n", {{"content", version(std::to_string(i))}});
  });
  for (int i = 0; i < 50 || saved("n").isNull(); ++i) {
    const auto file = std::make_shared<SpecialisedFile>();
    file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n");
  }
  isOver = true;
  poster.join();
  EXPECT_THAT(std::string(saved("n").view()), StartsWith("{\"v\": "));
}

}  // namespace
