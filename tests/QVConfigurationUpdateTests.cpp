#include "tests/support/ConfigurationServer.h"
#include "tests/support/ConfigurationTest.h"
#include "tests/support/Test.h"

namespace {

std::string version(const std::string& number) { return "{\"v\": " + number + "}"; }

class QVConfigurationUpdateTest : public QVTest::ConfigurationTest {
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
  const struct {
    const char* before;
    const char* after;
    bool isReplaced;
    std::int32_t version;
  } cases[] = {
      {"3", "3.0", false, 3},
      {"3", "4", true, 4},
      {"5", "4", false, 5},
      {"0", "-1", false, 0},
      {"-2", "-1", true, -1},
      {"1.9", "1.1", false, 1},
      {"1.9", "2.0", true, 2},
      {"9", "\"10\"", true, 10},
      {"\"v9\"", "1", true, 1},
      {"null", "1", true, 1},
      {"1", "null", false, 1},
      {"1", "[2]", false, 1},
      {"2147483647", "2147483648", false, 2147483647},
      {"2147483646", "1e30", true, 2147483647},
      {"-1e30", "-2147483648", false, -2147483647 - 1},
      {"1", "99999999999999999999", true, 2147483647},
      {"false", "true", true, 1},
  };
  for (const auto& [before, after, isReplaced, expected] : cases) {
    const String oldText(version(before));
    const String newText(version(after));
    const auto file = bareFile<SpecialisedFile>("n", "v");
    save("n", oldText);
    EXPECT_EQ(printed([&] { file->updateConfigurationFromOldConfToNew(oldText, newText); }), "");
    EXPECT_EQ(saved("n"), isReplaced ? newText : oldText) << before << " " << after;
    EXPECT_EQ(file->version(), expected) << before << " " << after;
    EXPECT_EQ(file->updates().size(), isReplaced ? 1U : 0U) << before << " " << after;
  }
}

TEST_F(QVConfigurationUpdateTest, TakesWhatItCannotReadForVersionZeroAndWarns) {
  const std::string missing = "Error getting branch in JSON: v\n";
  const struct {
    std::string before;
    std::string after;
    bool isReplaced;
    std::int32_t version;
    std::string lines;
  } cases[] = {
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

TEST_F(QVConfigurationUpdateTest, DoesNothingForEqualTexts) {
  const auto file = bareFile<SpecialisedFile>("n", "v");
  for (const std::string& text : {version("3"), std::string("{")}) {
    EXPECT_EQ(printed([&] { file->updateConfigurationFromOldConfToNew(text, text); }), "");
  }
  EXPECT_EQ(file->version(), 0);
  EXPECT_TRUE(saved("n").isNull());
}

TEST_F(QVConfigurationUpdateTest, KeepsTheFirstCopyWithoutAVersionPath) {
  const auto file = bareFile("n");
  file->onNotificationReceived(Notification(kQVNotification_ConfigurationResponse + String("n"),
                                            nullptr, {{"content", version("1")}}));
  file->onNotificationReceived(Notification(kQVNotification_ConfigurationResponse + String("n"),
                                            nullptr, {{"content", version("2")}}));
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
  ConfigurationServer server(version("2"));
  save("n", version("0"));
  ship("n", version("1"));
  QVTest::Recorder answers({kQVNotification_ConfigurationResponse + String("n")});
  const auto file = std::make_shared<SpecialisedFile>();
  file->isThrowing = true;
  const auto download = [&] {
    const auto lines = printed([&] {
      file->downloadConfigurationUpdate();
      EXPECT_TRUE(waitForDownloads());
    });
    EXPECT_THAT(lines, HasSubstr("Checking for update in privacy configuration: n\n"));
    return lines;
  };

  file->setFilenameVersionPathAndURL("n", "v", server.url());
  ASSERT_TRUE(waitForDownloads());
  EXPECT_EQ(saved("n"), String(version("2")));
  EXPECT_EQ(server.requests().front().field("If-Modified-Since"), "Thu, 01 Jan 1970 00:00:00 GMT");

  download();
  EXPECT_EQ(answers.heard().size(), 1U) << "304 is no answer";

  server.publish(version("1"), ConfigurationServer::kLater);
  download();
  EXPECT_EQ(answers.heard().size(), 2U);
  EXPECT_EQ(saved("n"), String(version("2"))) << "an older one is kept out";

  server.publish("{ broken", ConfigurationServer::kLater);
  EXPECT_THAT(download(), HasSubstr(warnings(version("2"), "{ broken")));
  EXPECT_EQ(saved("n"), String(version("2")));

  server.answerWith(404);
  download();
  EXPECT_EQ(answers.heard().size(), 3U) << "a failure is no answer";
  EXPECT_EQ(saved("n"), String(version("2")));

  server.publish(version("3"), ConfigurationServer::kLater);
  download();
  EXPECT_EQ(file->getJsonLeafFromPath("v"), Value(3));
  EXPECT_EQ(file->version(), 3);
  EXPECT_THAT(file->updates(), ElementsAre(SpecialisedFile::Update{version("0"), version("1")},
                                           SpecialisedFile::Update{version("1"), version("2")},
                                           SpecialisedFile::Update{version("2"), version("3")}));
  EXPECT_EQ(server.requests().size(), 6U);
}

TEST_F(QVConfigurationUpdateTest, KeepsNamesApartThatBeginAlike) {
  ConfigurationServer one(version("1"));
  ConfigurationServer two(version("2"));
  const auto factory = QVConfigurationFileFactory::sharedInstance();
  factory->addConfigurationFileWithVersionPathForURL("list", "v", one.url());
  factory->addConfigurationFileWithVersionPathForURL("list2", "v", two.url());
  ASSERT_TRUE(waitForDownloads());
  EXPECT_EQ(saved("list"), String(version("1")));
  EXPECT_EQ(saved("list2"), String(version("2")));
  const auto files = {factory->getConfigurationFile("list"),
                      factory->getConfigurationFile("list2")};
  one.publish(version("10"), ConfigurationServer::kLater);
  for (const auto& file : files) file->downloadConfigurationUpdate();
  ASSERT_TRUE(waitForDownloads());
  EXPECT_EQ(saved("list"), String(version("10")));
  EXPECT_EQ(saved("list2"), String(version("2")));
  EXPECT_EQ(one.requests().size(), 2U);
  EXPECT_EQ(two.requests().size(), 2U);
}

TEST_F(QVConfigurationUpdateTest, TakesAConfigurationOfFiveMegabytes) {
  std::string text = R"({"v": 2, "list": [)";
  while (text.size() < 5'000'000) text += R"({"name": "caf\u00e9", "purposes": [1, 2, 3]},)";
  text += R"(0], "last": {"key": "found"}})";
  ConfigurationServer server(text);
  save("n", version("1"));
  QVDebug::setDebugLevel(5);
  const auto file = std::make_shared<QVConfigurationFile>();
  file->setFilenameVersionPathAndURL("n", "v", server.url());
  ASSERT_TRUE(waitForDownloads());
  EXPECT_EQ(saved("n").view().size(), text.size());
  EXPECT_EQ(file->version(), 2);
  EXPECT_EQ(file->getJsonLeafFromPath("last/key"), Value("found"));
}

/// A specialised configuration whose hook waits in the middle of its work.
class SlowFile : public QVConfigurationFile {
 public:
  struct Script {
    std::promise<void> entered;
    std::promise<void> released;
    std::promise<std::string> result;
  };
  explicit SlowFile(Script& script) : script_(script) {}

  bool specificUpdateAnd(const String&, const String& newText) override {
    script_.entered.set_value();
    script_.released.get_future().wait();
    script_.result.set_value(own_ + std::string(newText.view()));
    return true;
  }

 private:
  Script& script_;
  const std::string own_ = "text of its own, too long to be kept within the string object: ";
};

TEST_F(QVConfigurationUpdateTest, LivesUntilAnAnswerThatIsBeingHandledIsDone) {
  QVDebug::blockHits(true);
  save("n", version("1"));
  SlowFile::Script script;
  auto file = std::make_shared<SlowFile>(script);
  const std::weak_ptr<SlowFile> watched = file;
  file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n");
  std::thread poster([] { answer("n", {{"content", version("2")}}); });
  script.entered.get_future().wait();
  file.reset();
  EXPECT_FALSE(watched.expired());
  script.released.set_value();
  poster.join();
  EXPECT_THAT(script.result.get_future().get(), HasSubstr(version("2")));
  EXPECT_TRUE(watched.expired());
}

TEST_F(QVConfigurationUpdateTest, MayBeReleasedWhileAnswersCome) {
  QVDebug::blockHits(true);
  QVDebug::setDebugLevel(6);
  std::atomic<bool> isOver{false};
  std::thread poster([&] {
    for (int i = 0; !isOver; ++i) answer("n", {{"content", version(std::to_string(i))}});
  });
  for (int i = 0; i < 50; ++i) {
    const auto file = std::make_shared<SpecialisedFile>();
    file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n");
  }
  isOver = true;
  poster.join();
  EXPECT_FALSE(saved("n").isNull());
}

}  // namespace
