#include "tests/support/ConfigurationTest.h"
#include "tests/support/Test.h"

namespace {

/// Owns a listener and remembers the names that it hears.
class Module : public QVPlatform::Object, public IQVEventListenerDelegate {
 public:
  explicit Module(std::shared_ptr<QVEventListener> itsListener) : listener(std::move(itsListener)) {
    listener->init()->setParent(this);
  }
  ~Module() override { listener->setParent(nullptr); }

  void changeNotificationCenter(
      const std::shared_ptr<QVPlatform::NotificationCenter>& center) override {
    listener->setNotificationCenter(center);
  }
  void onNotificationReceived(const Notification& notification) override {
    heard.emplace_back(notification.name().view());
  }

  const std::shared_ptr<QVEventListener> listener;
  std::vector<std::string> heard;
};

class DerivedListener : public QVEventListener {};

class QVConfigurationFileFactoryTest : public QVTest::ConfigurationTest {
 protected:
  QVConfigurationFileFactoryTest() { QVDebug::blockHits(true); }

  static void postChanged(const std::string& suffix) {
    post(kQVNotification_ConfigurationChanged + String(suffix));
  }

  const std::shared_ptr<QVConfigurationFileFactory> factory =
      QVConfigurationFileFactory::sharedInstance();
  QVTest::Recorder requests{{kQVNotification_ConfigurationRequest + String("n")}};
};

TEST_F(QVConfigurationFileFactoryTest, MakesFilesWithTheNumbersOfTheAccount) {
  factory->addConfigurationFile("before");
  factory->initWithSiteIDAndContainerID(7, 8);
  factory->addConfigurationFile("plain");
  factory->addConfigurationFileWithVersionPath("versioned", "a/b");
  factory->addConfigurationFileWithVersionPathForURL("elsewhere", "c", "http://h/x");
  factory->addConfigurationFileWithVersionPathForURL("built", "d", nullptr);
  const struct {
    const char* name;
    String versionPath;
    String url;
  } cases[] = {
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
  EXPECT_EQ(factory->getConfigurationFile("Plain"), nullptr);
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

TEST_F(QVConfigurationFileFactoryTest, LetsAPlainListenerHearTheNameWithAnAtSign) {
  Module module(std::make_shared<QVEventListener>());
  factory->addConfigurationFileForListener("n", module.listener);
  postChanged("n");
  EXPECT_THAT(module.heard, IsEmpty());
  postChanged("@n");
  postChanged("@nn");
  EXPECT_THAT(module.heard, ElementsAre("QVNotification: Configuration changed@n"));
  factory->addConfigurationFileForListener("n", module.listener);
  postChanged("@n");
  EXPECT_EQ(module.heard.size(), 3U) << "it listens once more with each call";
}

TEST_F(QVConfigurationFileFactoryTest, PassesOverAListenerOfADerivedClass) {
  Module module(std::make_shared<DerivedListener>());
  factory->addConfigurationFileForListener("n", module.listener);
  postChanged("@n");
  EXPECT_THAT(module.heard, IsEmpty());
  EXPECT_NE(factory->getConfigurationFile("n"), nullptr);
}

TEST_F(QVConfigurationFileFactoryTest, TakesAFileFromElsewhereAsItIs) {
  const auto file = std::make_shared<QVTest::SpecialisedFile>();
  factory->addConfigurationFileFromFileForListener("n", file, nullptr);
  EXPECT_EQ(factory->getConfigurationFile("n"), file);
  EXPECT_TRUE(file->offlineName().isNull());
  EXPECT_THAT(requests.heard(), IsEmpty());
}

TEST_F(QVConfigurationFileFactoryTest, GivesBundlesToTheFilesMadeAfterwards) {
  ship("n", R"({"from": "main"})");
  std::filesystem::create_directory(resources() / "module");
  write(resources() / "module" / "m.json", R"({"from": "module"})");
  const auto bundle = std::make_shared<Bundle>((resources() / "module").string());
  factory->addConfigurationFile("n");
  factory->setBundleForConfiguration(bundle, "n");
  factory->setBundleForConfiguration(bundle, "m");
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

TEST(QVConfigurationFileFactory, IsCreatedOnceByThreadsThatAskAtOnce) {
  std::vector<std::shared_ptr<QVConfigurationFileFactory>> found(8);
  {
    std::vector<std::jthread> threads;
    for (auto& place : found) {
      threads.emplace_back([&place] { place = QVConfigurationFileFactory::sharedInstance(); });
    }
  }
  for (const auto& instance : found) EXPECT_EQ(instance, found.front());
  EXPECT_FALSE(found.front()->configurations().isNull());
}

using QVConfigurationFileFactoryDeathTest = QVConfigurationFileFactoryTest;

TEST_F(QVConfigurationFileFactoryDeathTest, NeverReturnsFromASecondPlainInit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        alarm(1);
        std::make_shared<QVConfigurationFileFactory>()->init();
      },
      testing::KilledBySignal(SIGALRM), "");
}

}  // namespace
