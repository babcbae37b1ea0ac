#include "tests/support/ChildProcess.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/LocklessFileSystem.h"
#include "tests/support/PropertyListValues.h"
#include "tests/support/Test.h"

namespace fs = std::filesystem;

namespace {

UserDefaults& defaults() { return UserDefaults::standardUserDefaults(); }

/// Values are kept in a process, so what another launch sees is seen by a child process; the test
/// itself uses the defaults only where it is a launch too.
class UserDefaultsTest : public ::testing::Test {
 protected:
  UserDefaultsTest() {
    Application::setContainerDirectory(String(container.path().string()));
    Application::setIdentifier("org.example.tests");
  }

  /// The file as it is.
  Dictionary stored() const { return PropertyList::valueWithData(contentsOf(file)).dictionary(); }

  static int store(const Value& value, const String& key) {
    defaults().setObjectForKey(value, key);
    return defaults().synchronize() ? 0 : 1;
  }

  const TemporaryDirectory container;
  const fs::path preferences = container.path() / "Library/Preferences";
  const fs::path file = preferences / "org.example.tests.plist";
};

TEST_F(UserDefaultsTest, KeepsValuesAcrossLaunchesUntilNilRemovesThem) {
  const Value value = Array({"a", 1U, Dictionary({{"b", Date{2.5}}})});
  ASSERT_EQ(runInChild([&] { return store(value, "key") + store("b", "other"); }), 0);
  EXPECT_EQ(defaults().objectForKey("key"), value);
  EXPECT_TRUE(defaults().objectForKey("never saved").isNil());
  EXPECT_TRUE(defaults().objectForKey(nullptr).isNil());
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(preferences).permissions(), fs::perms(0700));
  EXPECT_EQ(store(nullptr, "key"), 0);
  EXPECT_TRUE(defaults().objectForKey("key").isNil());
  EXPECT_EQ(Value(stored()), Value(Dictionary({{"other", "b"}})));
}

TEST_F(UserDefaultsTest, RefusesWhatIsNoPropertyListOrTooLarge) {
  class Opaque : public Object {};
  Array cyclic = Array::array();
  cyclic.append(cyclic);
  store("a", "key");
  for (const Value& value :
       {Value(std::make_shared<Opaque>()), Value(cyclic), nested(1, PropertyList::kMaximumDepth),
        Value(Data(std::string(PropertyList::kMaximumCopySize, 'x')))}) {
    const auto lines = complaintsOf([&] { defaults().setObjectForKey(value, "key"); });
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1) << lines;
    EXPECT_EQ(defaults().objectForKey("key"), Value("a"));
  }
  EXPECT_EQ(store("ignored", nullptr), 0);
  cyclic.clear();
}

TEST_F(UserDefaultsTest, HoldsValuesThatNobodyElseChanges) {
  Array array({1});
  defaults().setObjectForKey(Dictionary({{"array", array}}), "key");
  array.append(2);
  Dictionary read = defaults().objectForKey("key").dictionary();
  read.set("more", true);
  EXPECT_EQ(defaults().objectForKey("key"), Value(Dictionary({{"array", Array({1})}})));
  const String text(std::string(500000, 'x'));
  defaults().setObjectForKey(text, "text");
  EXPECT_TRUE(defaults().objectForKey("text").string().isSameObject(text)) << "copied";
}

TEST_F(UserDefaultsTest, SeesTheChangesOfOthersWhenSynchronized) {
  ASSERT_EQ(store("mine", "mine"), 0);
  defaults().setObjectForKey("changed here", "both");
  ASSERT_EQ(runInChild([] { return store("theirs", "theirs") + store("there", "both"); }), 0);
  EXPECT_TRUE(defaults().objectForKey("theirs").isNil());
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_EQ(Value(stored()),
            Value(Dictionary({{"both", "changed here"}, {"mine", "mine"}, {"theirs", "theirs"}})));
  EXPECT_EQ(defaults().objectForKey("theirs"), Value("theirs"));
  ASSERT_EQ(runInChild([] { return store(nullptr, "mine"); }), 0);
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_TRUE(defaults().objectForKey("mine").isNil());
  defaults().setObjectForKey("not written yet", "mine");
  ASSERT_EQ(runInChild([] { return store("theirs", "late"); }), 0);
  EXPECT_TRUE(defaults().removeAllObjects());
  EXPECT_EQ(Value(stored()), Value(Dictionary::dictionary()));
  EXPECT_TRUE(defaults().objectForKey("mine").isNil());
}

TEST_F(UserDefaultsTest, LosesNoChangeOfProcessesAndThreadsThatWriteAtOnce) {
  const auto write = [](char name, int count) {
    int failures = 0;
    for (int i = 0; i < count; ++i) {
      const String key(name + std::to_string(i));
      failures += store(Array({i}), key);
      EXPECT_EQ(defaults().objectForKey(key), Value(Array({i})));
    }
    // Who finds the lock taken for long goes on, and writes at the next occasion.
    while (failures > 0) failures *= !defaults().synchronize();
    return failures;
  };
  std::vector<pid_t> children;
  for (const char name : {'a', 'b', 'c'}) {
    children.push_back(startChild([&] { return write(name, 30); }));
  }
  std::vector<std::jthread> threads;
  for (const char name : {'d', 'e', 'f'}) threads.emplace_back(write, name, 10);
  threads.clear();
  for (const pid_t child : children) EXPECT_EQ(exitStatusOf(child), 0);
  EXPECT_EQ(stored().count(), 120U);
}

TEST_F(UserDefaultsTest, ReplacesAFileThatIsGoneOrDamaged) {
  fs::create_directories(preferences);
  putFile(file, "bplist00 and then nothing of the kind");
  EXPECT_TRUE(defaults().objectForKey("old").isNil());
  ASSERT_EQ(store("old", "old"), 0);
  const std::string whole = contentsOf(file);
  int round = 0;
  for (const std::string& damage : {whole.substr(0, whole.size() / 2), std::string("bplist00"),
                                    std::string(), std::string("<plist><array/></plist>")}) {
    putFile(file, damage);
    EXPECT_EQ(store(++round, "round"), 0);
    EXPECT_EQ(Value(stored()), Value(Dictionary({{"old", "old"}, {"round", round}})));
  }
  fs::remove_all(container.path() / "Library");
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_EQ(stored().count(), 2U);
  putFile(file, "<plist><dict><key>by hand</key><true/></dict></plist>");
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_EQ(defaults().objectForKey("by hand"), Value(true));
}

TEST_F(UserDefaultsTest, WritesAtTheNextChanceWhatCouldNotBeWritten) {
  const auto block = [&] {
    fs::rename(preferences, container.path() / "aside");
    putFile(preferences, "a file where the directory should be");
  };
  const auto unblock = [&] {
    fs::remove(preferences);
    fs::rename(container.path() / "aside", preferences);
  };
  ASSERT_EQ(store("old", "kept") + store("old", "removed") + store("old", "set"), 0);
  block();
  EXPECT_EQ(store("new", "set") + store(nullptr, "removed") + store("a", "twice"), 3);
  EXPECT_EQ(store("b", "twice"), 1);
  EXPECT_EQ(defaults().exchangeObjectForKey(nullptr, "mine", "agreed"), Value("mine"));
  EXPECT_EQ(defaults().exchangeObjectForKey("old", "mine", "kept"), Value("mine"));
  EXPECT_EQ(defaults().exchangeObjectForKey(nullptr, "mine", "chosen"), Value("mine"));
  EXPECT_EQ(store("chosen", "chosen"), 1);  // which no longer depends on what others have saved
  unblock();
  // The file can be read, but there is no name left for an unfinished one.
  const std::string unfinished = preferences / ".org.example.tests.plist.tmp";
  for (int i = 0; i < 64; ++i) fs::create_directory(unfinished + std::to_string(i));
  EXPECT_EQ(store("c", "later"), 1);
  EXPECT_EQ(defaults().objectForKey("twice"), Value("b"));
  EXPECT_EQ(defaults().objectForKey("agreed"), Value("mine"));
  EXPECT_TRUE(defaults().objectForKey("removed").isNil());
  for (int i = 0; i < 64; ++i) fs::remove(unfinished + std::to_string(i));
  ASSERT_EQ(runInChild([] {
              return store("theirs", "agreed") + store("theirs", "set") + store("theirs", "chosen");
            }),
            0);
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_EQ(Value(stored()), Value(Dictionary({{"agreed", "theirs"},
                                               {"chosen", "chosen"},
                                               {"kept", "mine"},
                                               {"later", "c"},
                                               {"set", "new"},
                                               {"twice", "b"}})));
  block();
  EXPECT_EQ(defaults().exchangeObjectForKey(nullptr, "mine", "erased"), Value("mine"));
  EXPECT_FALSE(defaults().removeAllObjects());
  unblock();
  ASSERT_EQ(runInChild([] { return store("theirs", "erased"); }), 0);
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_EQ(Value(stored()), Value(Dictionary::dictionary()));
}

TEST_F(UserDefaultsTest, WaitsOnceForALockThatSomebodyElseHolds) {
  ASSERT_EQ(store("a", "before"), 0);
  const int lock = open((preferences / ".org.example.tests.lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(store(i, "key"), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(defaults().objectForKey("key"), Value(19));
  for (const char* key : {"mine", "theirs"}) {
    EXPECT_EQ(defaults().exchangeObjectForKey(nullptr, "mine", key), Value("mine"));
  }
  // What is agreed on is waited for while others, who come later, give up twice.
  ChildProcess agreeing([lock](int output) {
    close(lock);  // its own copy
    dprintf(output, "begun\n");
    defaults().exchangeObjectForKey(nullptr, "agreed", "late");
    return runInChild([] { return defaults().objectForKey("late").isNil() ? 1 : 0; });
  });
  EXPECT_EQ(agreeing.firstLine(), "begun");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(runInChild([] { return store("b", "given up"); }), 1);
  close(lock);
  EXPECT_EQ(agreeing.finish(), 0);
  EXPECT_EQ(runInChild([] {
              const Value agreed = defaults().exchangeObjectForKey(nullptr, "theirs", "theirs");
              return agreed == Value("theirs") ? 0 : 1;
            }),
            0);
  EXPECT_TRUE(defaults().synchronize());
  EXPECT_EQ(defaults().objectForKey("theirs"), Value("theirs"));
  const Dictionary all(
      {{"before", "a"}, {"key", 19}, {"late", "agreed"}, {"mine", "mine"}, {"theirs", "theirs"}});
  EXPECT_EQ(Value(stored()), Value(all));
}

TEST_F(UserDefaultsTest, WritesWithoutALockWhereThereIsNone) {
  const fs::path lock = preferences / ".org.example.tests.lock";
  fs::create_directories(lock);
  EXPECT_EQ(store(1, "directory"), 0);
  fs::remove(lock);
  fs::create_symlink("elsewhere", lock);
  EXPECT_EQ(store(2, "link"), 0);
  fs::remove(lock);
  LocklessFileSystem lockless;
  EXPECT_EQ(store(3, "no locks"), 0);
  EXPECT_EQ(stored().count(), 3U);
}

TEST_F(UserDefaultsTest, LosesNoChangeWhenMemoryRunsOut) {
  testing::internal::CaptureStderr();
  Dictionary expected = Dictionary::dictionary();
  const Value shared = "shared";
  long count = 0;
  for (bool hasFailed = true; hasFailed; ++count) {
    const String key(std::to_string(count % 4));
    const Value value = Array({static_cast<std::int64_t>(count)});
    // The first use of the process is another one in each round.
    const auto use = [&] {
      const FailingAllocations memory(count);
      store(value, key);
      defaults().exchangeObjectForKey(nullptr, shared, shared.string());
      return memory.hasFailed() ? 1 : 0;
    };
    ASSERT_GE(runInChild(use), 0) << count;
    hasFailed = use() != 0;
    expected.set(key, defaults().objectForKey(key));
  }
  EXPECT_TRUE(count > 50 || !FailingAllocations::kIsPossible);
  EXPECT_TRUE(defaults().synchronize());
  expected.set("shared", shared);
  EXPECT_EQ(Value(stored()), Value(expected));
}

TEST_F(UserDefaultsTest, StaysInItsDirectoryWhateverTheIdentifier) {
  Application::setIdentifier("../../escaped");
  EXPECT_EQ(store("a", "key"), 0);
  EXPECT_TRUE(fs::exists(preferences / "..-..-escaped.plist"));
}

}  // namespace
