#include "tests/support/ConfigurationTest.h"
#include "tests/support/Test.h"

namespace {

class QVConfigurationFileTest : public ConfigurationTest {
 protected:
  /// What is asked for goes nowhere.
  QVConfigurationFileTest() { QVDebug::blockHits(true); }

  static std::string missing(const std::vector<std::string>& keys) {
    std::string lines;
    for (const auto& key : keys) lines += "Error getting branch in JSON: " + key + "\n";
    return lines;
  }
};

TEST_F(QVConfigurationFileTest, TakesItsNamesFromItsIdentity) {
  const auto shortest = [](auto& file) { file.setSiteIDFileIDAndFileName(7, 8, "n"); };
  const std::tuple<std::function<void(QVConfigurationFile&)>, int, int, String, String> cases[] = {
      {shortest, 7, 8, nullptr, "https://configuration.example.invalid/mobile/7/8/n.json"},
      {[](auto& file) {
         QVConfigurationFile::setConfigurationHost("cdn.example:8443");
         file.setSiteIDFileIDFileNameAndVersionPath(-1, 2147483647, "n", "a/b");
       },
       -1, 2147483647, "a/b", "https://cdn.example:8443/mobile/-1/2147483647/n.json"},
      {[](auto& file) { file.setFilenameVersionPathAndURL("n", "a", nullptr); }, 0, 0, "a",
       "https://cdn.example:8443/mobile/0/0/n.json"},
      {[&](auto& file) {
         QVConfigurationFile::setConfigurationHost(nullptr);
         shortest(file);
       },
       7, 8, nullptr, "https://configuration.example.invalid/mobile/7/8/n.json"},
      {[](auto& file) { file.setFilenameVersionPathAndURL("n", nullptr, "any text"); }, 0, 0,
       nullptr, "any text"},
      {[](auto& file) {
         file.setSiteIDFileIDFileNameVersionPathAndURL(1, 2, "n", "", "http://h/x");
       },
       1, 2, "", "http://h/x"},
  };
  for (const auto& [identify, site, number, versionPath, url] : cases) {
    const auto file = std::make_shared<QVConfigurationFile>();
    file->setSiteID(5);  // whatever it was before
    file->setFileID(6);
    identify(*file);
    EXPECT_EQ(file->baseURL(), url);
    EXPECT_EQ(file->siteID(), site) << url.view();
    EXPECT_EQ(file->fileID(), number) << url.view();
    EXPECT_EQ(file->versionPath(), versionPath) << url.view();
    EXPECT_EQ(file->offlineName(), String("n"));
    EXPECT_EQ(file->sharedName(), String("configuration_n"));
  }
}

TEST_F(QVConfigurationFileTest, WalksPathsInTheOfflineCopyAndInValuesAlike) {
  const char* const text = R"({
    "a": {"b": 1, "t": "x", "n": null, "o": {"z": [1]}, "": {"": "deep"}, "l": [{"b": 2}]},
    "b": 9, "0": "zero", "": "empty", "n": null, "a ": false, "s": "text"})";
  const Value null = Null::null();
  const std::tuple<String, Value, std::vector<std::string>> cases[] = {
      {"a/b", 1, {}},
      {"b", 9, {}},
      {"a/o", Dictionary{{"z", Array{1}}}, {}},
      {"a/n", null, {}},
      {"a ", false, {}},
      {"", "empty", {}},
      {"/", "0", {""}},
      {"a//", "deep", {}},
      {"//a/b", "0", {"", "a", "b"}},
      {"a/o//z", Array{1}, {""}},
      // A key that is missing on the way is passed over, and so is one in what is no object.
      {"a/x/b", 1, {"x"}},
      {"x/y/b", 9, {"x", "y"}},
      {"a/l/0/b", "0", {"0", "b"}},
      {"s/b", "0", {"b"}},
      {"n/b", "0", {"b"}},
      // The last key decides.
      {"a/x", "0", {"x"}},
      {"a/b/", "0", {""}},
      {nullptr, "0", {}},
  };
  save("n", text);
  const auto file = bareFile("n");
  const Value json = file->getJSONDictionary();
  ASSERT_FALSE(json.isNil());
  for (const auto& [path, leaf, keys] : cases) {
    Value read;
    EXPECT_EQ(printed([&, &at = path] { read = file->getJsonLeafFromPath(at); }), missing(keys))
        << path.view();
    EXPECT_EQ(read, leaf) << path.view();
    EXPECT_EQ(printed([&, &at = path] { read = file->getJsonLeafFromPath(json, at); }),
              missing(keys))
        << path.view();
    EXPECT_EQ(read, leaf) << path.view();
  }
}

TEST_F(QVConfigurationFileTest, ReadsVersionsAsIntegers) {
  const Dictionary json{{"in", Dictionary{{"v", " 12 apples"}, {"n", -2.9}}}, {"", 5}};
  EXPECT_EQ(bareFile("n", "in/v")->getVersionFromJSONObject(json), 12);
  EXPECT_EQ(bareFile("n", "in/n")->getVersionFromJSONObject(json), -2);
  EXPECT_EQ(bareFile("n", "in/x")->getVersionFromJSONObject(json), 0);
  EXPECT_EQ(bareFile("n", "in")->getVersionFromJSONObject(nullptr), 0);
  EXPECT_EQ(bareFile("n")->getVersionFromJSONObject(json), 0) << "no path";
}

TEST_F(QVConfigurationFileTest, LogsWhyThereAreNoValuesInItsOwnCopyOnly) {
  const auto file = bareFile("n");
  Value read;
  const auto readDictionary = [&] { read = file->getJSONDictionary(); };
  const auto readLeaf = [&] { EXPECT_EQ(file->getJsonLeafFromPath("a/b"), Value("0")); };
  const auto readGiven = [&](const String& text) {
    return printed([&] { read = file->getJSONDictionaryFromString(text); });
  };
  for (const String& text : {String(), String("")}) {
    save("n", text);
    EXPECT_EQ(printed(readDictionary), "Error configuration is empty : n\n");
    EXPECT_EQ(printed(readLeaf), "Error configuration is empty : n\n" + missing({"a", "b"}));
    EXPECT_EQ(readGiven(text),
              "Error configuration is empty : "s + (text.isNull() ? "(null)\n" : "\n"));
  }
  for (const char* text : {"{", "7"}) {
    save("n", text);
    const char* const start = "Error parsing dictionnary from configuration : n with error: ";
    EXPECT_THAT(printed(readDictionary), StartsWith(start));
    EXPECT_THAT(printed(readLeaf), AllOf(StartsWith(start), HasSubstr(missing({"a", "b"}))));
    EXPECT_EQ(readGiven(text), "");
    EXPECT_TRUE(read.isNil());
  }
  EXPECT_EQ(readGiven(R"([{"a": 1}])"), "");
  EXPECT_EQ(read, Value(Array{Dictionary{{"a", 1}}}));
}

TEST_F(QVConfigurationFileTest, SeedsTheOfflineCopyFromTheShippedText) {
  const String older(R"({"v": 3, "from": "old"})");
  const String newer(R"({"v": 4, "from": "new"})");
  const std::tuple<String, String, String> cases[] = {
      {nullptr, older, older}, {"", older, older},  {older, newer, newer},
      {newer, older, newer},   {older, "{", older}, {nullptr, "{", "{"},
      {older, nullptr, older}, {nullptr, "", ""},   {nullptr, nullptr, nullptr},
  };
  int number = 0;
  for (const auto& [before, shipped, expected] : cases) {
    const std::string name = "n" + std::to_string(++number);
    save(name, before);
    if (!shipped.isNull()) ship(name, std::string(shipped.view()));
    bareFile(name, "v")->preSaveOfflineJSON();
    EXPECT_EQ(saved(name), expected) << number;
  }
}

TEST_F(QVConfigurationFileTest, AsksForItselfWithAMarkerForTheConsentQueue) {
  const String name("QVNotification: Privacy Configuration Requestn");
  Recorder requests({name});
  ship("n", "{}");
  String seeded;  // when it asks
  NotificationCenter::defaultCenter()->addObserver(
      &seeded, [&](const auto&) { seeded = saved("n"); }, name);
  const auto file = std::make_shared<QVConfigurationFile>();
  EXPECT_THAT(printed([&] { file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n"); }),
              HasSubstr("Checking for update in privacy configuration: n\n"));
  EXPECT_EQ(seeded, String("{}"));
  ASSERT_EQ(requests.heard().size(), 1U);
  const auto request = requests.heard().front();
  EXPECT_EQ(request.object(), file);
  EXPECT_EQ(Value(request.userInfo()),
            Value(Dictionary{{"url", "http://127.0.0.1/n"}, {"HTTPURLResponse", "configuration"}}));
}

TEST_F(QVConfigurationFileTest, RegistersItselfThenTheManagerThenTheLogger) {
  save("n", R"({"v": 1})");
  const auto file = std::make_shared<QVConfigurationFile>();
  file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n");
  QVDebug::setNotificationLog(true);
  const auto lines = printed([] {
    post(kQVNotification_ConfigurationResponse + String("n"), {{"content", R"({"v": 2)"}});
    post(kQVNotification_ConfigurationChanged + String("n"));
    post(kQVNotification_ConfigurationChanged + String("@n"));
  });
  EXPECT_EQ(lines,
            "Error getting branch in JSON: v\n"
            "Either the offline or the new configuration is not valid\n"
            "Saved one: {\"v\": 1}\n"
            "New one: {\"v\": 2\n"
            "QVNotification: Privacy Configuration Responsen | ((null))\n"
            "QVNotification: Configuration changedn | ((null))\n");
}

TEST_F(QVConfigurationFileTest, RegistersTheManagerOnceMoreWithEachIdentityAndItselfAnew) {
  save("n", "{}");
  const auto file = std::make_shared<QVConfigurationFile>();
  for (int i = 0; i < 2; ++i) file->setFilenameVersionPathAndURL("n", "v", "http://127.0.0.1/n");
  EXPECT_EQ(QVNetworkManager::sharedInstance()->nextRequestID(), 3U);
  EXPECT_EQ(printed([] {
              post(kQVNotification_ConfigurationResponse + String("n"), {{"content", "[]"}});
            }),
            missing({"v", "v"}))
      << "it compares the texts once";
}

}  // namespace
