#include "tests/support/ConfigurationTest.h"
#include "tests/support/Test.h"

namespace {

/// Remembers the names that a listener hears.
class Module : public IQVEventListenerDelegate {
 public:
  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>&) override {}
  void onNotificationReceived(const Notification& notification) override {
    heard.emplace_back(notification.name().view());
  }

  std::vector<std::string> heard;
};

class DerivedListener : public QVEventListener {};

class QVConfigurationFileFactoryTest : public ConfigurationTest {
 protected:
  QVConfigurationFileFactoryTest() { QVDebug::blockHits(true); }

  const std::shared_ptr<QVConfigurationFileFactory> factory =
      QVConfigurationFileFactory::sharedInstance();
  Recorder requests{{kQVNotification_ConfigurationRequest + String("n")}};
};

TEST_F(QVConfigurationFileFactoryTest, MakesFilesWithTheNumbersOfTheAccount) {
  factory->addConfigurationFile("before");
  factory->initWithSiteIDAndContainerID(7, 8);
  factory->addConfigurationFile("plain");
  factory->addConfigurationFileWithVersionPath("versioned", "a/b");
  factory->addConfigurationFileWithVersionPathForURL("elsewhere", "c", "http://h/x");
  factory->addConfigurationFileWithVersionPathForURL("built", "d", nullptr);
  const std::tuple<const char*, String, String> cases[] = {
      {"before", nullptr, "https://configuration.example.invalid/mobile/0/0/before.json"},
      {"plain", nullptr, "https://configuration.example.invalid/mobile/7/8/plain.json"},
      {"versioned", "a/b", "https://configuration.example.invalid/mobile/7/8/versioned.json"},
      {"elsewhere", "c", "http://h/x"},
      {"built", "d", "https://configuration.example.invalid/mobile/7/8/built.json"},
  };
  for (const auto& [name, versionPath, url] : cases) {
    const auto file = factory->getConfigurationFile(name);
    ASSERT_NE(file, nullptr) << name;
    EXPECT_EQ(file->offlineName(), String(name));
    EXPECT_EQ(file->versionPath(), versionPath) << name;
    EXPECT_EQ(file->baseURL(), url);
  }
  EXPECT_EQ(factory->configurations().count(), 5U);
  EXPECT_EQ(factory->getConfigurationFile(nullptr), nullptr);
}

TEST_F(QVConfigurationFileFactoryTest, ReplacesAnEarlierFileUnlessAURLIsGiven) {
  factory->addConfigurationFileWithVersionPathForURL("n", "v", "http://h/x");
  const auto first = factory->getConfigurationFile("n");
  factory->addConfigurationFileWithVersionPathForURL("n", "w", "http://h/y");
  EXPECT_EQ(factory->getConfigurationFile("n"), first);
  EXPECT_EQ(requests.heard().size(), 1U) << "nothing was downloaded for the second one";

  factory->addConfigurationFile("n");
  EXPECT_NE(factory->getConfigurationFile("n"), first);
  const auto second = factory->getConfigurationFile("n");
  factory->addConfigurationFileWithVersionPath("n", "v");
  EXPECT_NE(factory->getConfigurationFile("n"), second);
  const auto third = factory->getConfigurationFile("n");
  factory->addConfigurationFileForListener("n", nullptr);
  EXPECT_NE(factory->getConfigurationFile("n"), third);
  EXPECT_EQ(requests.heard().size(), 4U);
  EXPECT_EQ(factory->configurations().count(), 1U);
}

TEST_F(QVConfigurationFileFactoryTest, IgnoresMissingNamesAndFiles) {
  for (const String& name : {String(), String("")}) {
    factory->addConfigurationFile(name);
    factory->addConfigurationFileForListener(name, nullptr);
    factory->addConfigurationFileFromFileForListener(name, std::make_shared<QVConfigurationFile>(),
                                                     nullptr);
    factory->addConfigurationFileWithVersionPath(name, "v");
    factory->addConfigurationFileWithVersionPathForURL(name, "v", "http://h/x");
    factory->setBundleForConfiguration(nullptr, name);
  }
  factory->addConfigurationFileFromFileForListener("n", nullptr, nullptr);
  EXPECT_EQ(factory->configurations().count(), 0U);
  EXPECT_EQ(QVNetworkManager::sharedInstance()->nextRequestID(), 0U);
}

TEST_F(QVConfigurationFileFactoryTest, LetsAListenerThatIsPlainHearTheNameWithAnAtSign) {
  Module module;
  const std::pair<std::shared_ptr<QVEventListener>, std::size_t> cases[] = {
      {std::make_shared<DerivedListener>()->init(), 0},
      {std::make_shared<QVEventListener>()->init(), 1}};
  for (const auto& [listener, count] : cases) {
    module.heard.clear();
    listener->setParent(&module);
    factory->addConfigurationFileForListener("n", listener);
    EXPECT_NE(factory->getConfigurationFile("n"), nullptr);
    for (const char* suffix : {"n", "@n", "@nn"}) {
      post(kQVNotification_ConfigurationChanged + String(suffix));
    }
    EXPECT_THAT(module.heard, SizeIs(count));
    factory->addConfigurationFileForListener("n", listener);
    post(kQVNotification_ConfigurationChanged + String("@n"));
    EXPECT_THAT(module.heard, SizeIs(3 * count)) << "it listens once more with each call";
    listener->setParent(nullptr);
  }
}

TEST_F(QVConfigurationFileFactoryTest, TakesAFileFromElsewhereAsItIs) {
  const auto file = std::make_shared<SpecialisedFile>();
  factory->addConfigurationFileFromFileForListener("n", file, nullptr);
  EXPECT_EQ(factory->getConfigurationFile("n"), file);
  EXPECT_TRUE(file->offlineName().isNull());
  EXPECT_THAT(requests.heard(), IsEmpty());
}

TEST_F(QVConfigurationFileFactoryTest, GivesBundlesToTheFilesMadeAfterwards) {
  ship("n", R"({"from": "main"})");
  std::filesystem::create_directory(resources() / "module");
  putFile(resources() / "module" / "m.json", R"({"from": "module"})");
  const auto bundle = std::make_shared<Bundle>((resources() / "module").string());
  factory->addConfigurationFile("n");
  factory->setBundleForConfiguration(bundle, "n");
  factory->setBundleForConfiguration(bundle, "m");
  factory->setBundleForConfiguration(nullptr, "m");  // not allowed, and no change
  factory->addConfigurationFile("m");
  EXPECT_EQ(factory->getConfigurationFile("n")->bundle(), nullptr);
  EXPECT_EQ(factory->getConfigurationFile("n")->getJsonLeafFromPath("from"), Value("main"));
  EXPECT_EQ(factory->getConfigurationFile("m")->bundle(), bundle);
  EXPECT_EQ(factory->getConfigurationFile("m")->getJsonLeafFromPath("from"), Value("module"));
}

TEST_F(QVConfigurationFileFactoryTest, ForgetsFilesAndBundlesButNotNumbersWhenInitialisedAgain) {
  factory->initWithSiteIDAndContainerID(7, 8);
  factory->setBundleForConfiguration(Bundle::mainBundle(), "dropped");
  factory->addConfigurationFile("dropped");
  const std::weak_ptr<QVConfigurationFile> dropped = factory->getConfigurationFile("dropped");
  EXPECT_EQ(factory->reinit(), factory);
  EXPECT_TRUE(dropped.expired());
  EXPECT_EQ(factory->getConfigurationFile("dropped"), nullptr);
  EXPECT_EQ(factory->bundles().count(), 0U);
  EXPECT_EQ(factory->siteID(), 7);
  EXPECT_EQ(factory->containerID(), 8);
  {
    const auto reinit = [&] { factory->reinit(); };
    const std::jthread one(reinit), other(reinit);  // neither waits for the other for ever
  }
  factory->addConfigurationFile("dropped");
  EXPECT_NE(factory->getConfigurationFile("dropped"), nullptr);
}

using QVConfigurationFileFactoryDeathTest = QVConfigurationFileFactoryTest;

TEST_F(QVConfigurationFileFactoryDeathTest, NeverReturnsFromASecondPlainInit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ualarm(300'000, 0);
        std::make_shared<QVConfigurationFileFactory>()->init();
      },
      testing::KilledBySignal(SIGALRM), "");
}

}  // namespace
