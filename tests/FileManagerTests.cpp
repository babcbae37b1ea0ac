#include <sys/file.h>
#include <sys/mount.h>

#include "tests/support/LocklessFileSystem.h"
#include "tests/support/Test.h"

namespace fs = std::filesystem;

/// While it is set, nothing that is written reaches the disk.
static bool isDiskBroken = false;

/// Stands in front of the C library's, in the libraries too.
extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
  if (!isDiskBroken) return static_cast<int>(syscall(SYS_fsync, descriptor));
  errno = EIO;
  return -1;
}

namespace {

constexpr std::size_t kLimit = 1000;

/// The current directory is an empty one.
class FileManagerTest : public ::testing::Test {
 protected:
  FileManagerTest() { fs::current_path(directory.path()); }

  /// Names in the directory, those of unfinished files included.
  static std::size_t fileCount() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("."), {}));
  }

  TemporaryDirectory directory;
};

mode_t modeOf(const fs::path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// One of two contents that differ in every byte and in length.
std::string contents(int number) {
  return std::string(number % 2 ? 100000 : 50000, number % 2 ? 'b' : 'a');
}

TEST_F(FileManagerTest, ReadsRegularFilesUpToTheLimit) {
  putFile("empty", "");
  putFile("largest", std::string(kLimit, 'x'));
  putFile("larger", std::string(kLimit + 1, 'x'));
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  const std::pair<String, Data> cases[] = {
      {"empty", Data("")},    {"largest", Data(std::string(kLimit, 'x'))},
      {"larger", nullptr},    {"missing", nullptr},
      {"pipe", nullptr},      {"./", nullptr},
      {"/dev/zero", nullptr}, {"empty\0x"s, nullptr},
      {String(), nullptr},    {"", nullptr},
  };
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(FileManager::contentsAtPath(name, kLimit), expected) << name.view();
  }
  // A file of the kernel does not tell its size.
  const std::string version = contentsOf("/proc/version");
  EXPECT_EQ(FileManager::contentsAtPath("/proc/version", version.size()), Data(version));
  EXPECT_TRUE(FileManager::contentsAtPath("/proc/version", version.size() - 1).isNull());
}

TEST_F(FileManagerTest, TellsWhyATextCannotBeRead) {
  putFile("text", "caf\u00e9");
  putFile("bytes", "caf\xe9");
  String error;
  EXPECT_EQ(FileManager::stringWithContentsOfFile("text", &error), String("caf\u00e9"));
  EXPECT_TRUE(error.isNull());
  // 64 MiB are read, and not a byte more.
  for (const char* name : {"largest", "larger"}) {
    putFile(name, "");
    fs::resize_file(name, (64U << 20) + (name == "larger"s ? 1 : 0));
  }
  EXPECT_EQ(FileManager::stringWithContentsOfFile("largest").view().size(), 64U << 20);
  const std::pair<String, std::string> cases[] = {{"missing", "No such file or directory"},
                                                  {"bytes", "it is not UTF-8"},
                                                  {"larger", "File too large"},
                                                  {"./", "Invalid argument"}};
  for (const auto& [name, reason] : cases) {
    EXPECT_TRUE(FileManager::stringWithContentsOfFile(name, &error).isNull());
    EXPECT_TRUE(error.view().ends_with(reason)) << error.view();
  }
  EXPECT_TRUE(FileManager::stringWithContentsOfFile("missing").isNull());
}

TEST_F(FileManagerTest, MakesAndRemovesOneLevelOrAllThatADirectoryHolds) {
  EXPECT_FALSE(FileManager::createDirectoryAtPath("a/b"));
  EXPECT_TRUE(FileManager::createDirectoryAtPath("a"));
  EXPECT_FALSE(FileManager::createDirectoryAtPath("a"));
  EXPECT_EQ(modeOf("a"), 0700U);
  EXPECT_TRUE(FileManager::writeAtomically("x", "a/file"));
  EXPECT_FALSE(FileManager::removeItemAtPath("a"));
  EXPECT_TRUE(FileManager::removeItemAtPath("a/file"));
  EXPECT_TRUE(FileManager::removeItemAtPath("a"));
  EXPECT_FALSE(FileManager::removeItemAtPath("a"));
  EXPECT_TRUE(FileManager::removeContentsOfDirectoryAtPath("a"));
  fs::create_directories("a/b/c");
  fs::create_directory("outside");
  for (const char* name : {"outside/file", "a/b/file"}) putFile(name, "x");
  fs::create_symlink(fs::absolute("outside"), "a/link");
  EXPECT_TRUE(FileManager::removeContentsOfDirectoryAtPath("a"));
  EXPECT_TRUE(fs::is_directory("a") && fs::is_empty("a") && fs::exists("outside/file"));
}

TEST_F(FileManagerTest, LeavesEverythingAsItWasWhenItCannotWrite) {
  putFile("file", "old");
  fs::create_directories("full/inner");
  for (const String& target :
       std::vector<String>{"missing/file", "file/inner", "full", "./", "", nullptr, "a\0b"s,
                           std::string(300, 'n'), "/proc/self/status"}) {
    EXPECT_FALSE(FileManager::writeAtomically("new", target)) << target.view();
  }
  EXPECT_FALSE(FileManager::writeAtomically(Data(), "file"));
  EXPECT_EQ(contentsOf("file"), "old");
  EXPECT_EQ(fileCount(), 2U);
}

TEST_F(FileManagerTest, KeepsTheOldFileWhenTheDiskIsFullOrDoesNotKeepTheNewOne) {
  putFile("file", "old");
  isDiskBroken = true;
  EXPECT_FALSE(FileManager::writeAtomically("new", "file"));
  isDiskBroken = false;
  EXPECT_EQ(contentsOf("file"), "old");
  EXPECT_EQ(fileCount(), 1U);
  // In a mount namespace of its own, so that nothing stays mounted whatever happens.
  const int status = runInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", directory.path().c_str(), "tmpfs", 0, "size=256k") != 0) {
      return 2;
    }
    fs::current_path(directory.path());
    if (!FileManager::writeAtomically(contents(0), "file")) return 3;
    if (FileManager::writeAtomically(std::string(300000, 'x'), "file")) return 4;
    if (contentsOf("file") != contents(0) || fileCount() != 1) return 5;
    return FileManager::writeAtomically(contents(1), "file") ? 0 : 6;
  });
  if (status == 2) GTEST_SKIP() << "no right to mount a file system";
  EXPECT_EQ(status, 0);
}

TEST_F(FileManagerTest, KeepsAFileWholeThatManyWriteAtOnceOfWhomSomeAreKilled) {
  ASSERT_TRUE(FileManager::writeAtomically(contents(0), "file"));
  const auto write = [&](int count) {
    for (int number = 0; number != count; ++number) {
      if (!FileManager::writeAtomically(contents(number), "file")) return 1;
    }
    return 0;
  };
  const auto isWhole = [&] {
    const std::string bytes = contentsOf("file");
    return bytes == contents(0) || bytes == contents(1);
  };
  const pid_t writer = startChild([&] { return write(25); });
  std::vector<pid_t> killed;
  killed.reserve(8);
  for (int i = 0; i < 8; ++i) killed.push_back(startChild([&] { return write(-1); }));
  std::vector<std::jthread> threads;
  threads.reserve(3);
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { EXPECT_EQ(write(25), 0); });
  for (const pid_t child : killed) {
    for (int reads = 0; reads < 15; ++reads) EXPECT_TRUE(isWhole());
    kill(child, SIGKILL);
    EXPECT_EQ(exitStatusOf(child), -1);
  }
  threads.clear();
  EXPECT_EQ(exitStatusOf(writer), 0);
  EXPECT_TRUE(isWhole());
  EXPECT_LE(fileCount(), 1 + killed.size());
  EXPECT_EQ(write(1), 0);
}

TEST_F(FileManagerTest, WritesAPrivateFileBesideALeftOverOfAnyKind) {
  const auto temporary = [](int number) { return ".file.tmp" + std::to_string(number); };
  for (const std::string& old : {temporary(0), "file"s}) {
    putFile(old, std::string(1000, 'x'));
    fs::permissions(old, fs::perms::all);
  }
  EXPECT_TRUE(FileManager::writeAtomically("new", "file"));
  EXPECT_EQ(contentsOf("file"), "new");
  EXPECT_EQ(modeOf("file"), 0600U);
  EXPECT_EQ(fileCount(), 1U);
  // What is somebody else's is left alone: what a link points to, by either kind of link, too.
  putFile("other", "other");
  fs::create_symlink("other", temporary(0));
  fs::create_hard_link("other", temporary(1));
  fs::create_directory(temporary(2));
  ASSERT_EQ(mkfifo(temporary(3).c_str(), 0600), 0);
  const int reader = open(temporary(3).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  putFile(temporary(4), "another user's");
  const bool isForeign = chown(temporary(4).c_str(), 65534, 65534) == 0;  // root alone can
  const std::size_t before = fileCount() - (isForeign ? 0 : 1);
  EXPECT_TRUE(FileManager::writeAtomically("", "file"));
  EXPECT_EQ(contentsOf("file"), "");
  EXPECT_EQ(contentsOf("other"), "other");
  EXPECT_EQ(fileCount(), before);
  close(reader);
}

TEST_F(FileManagerTest, LeavesTheLockOnAFileToNoChild) {
  auto file = std::make_unique<AtomicFile>("file");
  ASSERT_TRUE(file->write("new"));
  const pid_t child = startChild([] { return pause(); });
  ASSERT_TRUE(file->moveIntoPlace());
  file.reset();
  const int opened = open("file", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(flock(opened, LOCK_EX | LOCK_NB), 0);
  close(opened);
  kill(child, SIGKILL);
  exitStatusOf(child);
}

TEST_F(FileManagerTest, WritesWhereThereAreNoLocks) {
  const LocklessFileSystem lockless;
  // One of these is being written, as far as can be told; the other one was left long ago.
  for (const char* name : {".file.tmp0", ".file.tmp1"}) putFile(name, "x");
  fs::last_write_time(".file.tmp1", fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_TRUE(FileManager::writeAtomically("new", "file"));
  EXPECT_EQ(contentsOf("file"), "new");
  EXPECT_EQ(contentsOf(".file.tmp0"), "x");
  EXPECT_EQ(fileCount(), 2U);
}

TEST_F(FileManagerTest, TakesNothingButFilesOfNobodyTheOldestFirst) {
  const auto take = [] {
    return TakenFile::takeAtPath("file", [](const String&) { return true; });
  };
  const auto takenBy = [](pid_t owner) {
    return ".file.taken00000000000000000001-" + std::to_string(owner) + "-0";
  };
  for (const char* time : {"6", "4", "2", "5", "3"}) {
    putFile(".file.taken0000000000000000000"s + time + "-1-0", time);
  }
  putFile("file", "7");
  std::string inOrder;
  for (TakenFile& file : take()) {
    inOrder += file.contents(1).view();
    file.remove();
  }
  EXPECT_EQ(inOrder, "234567");
  putFile("file", "whole");
  fs::create_directory(takenBy(1));
  {
    auto files = take();
    ASSERT_EQ(files.size(), 1U);
    ASSERT_TRUE(files[0].replaceContents("rest"));
    EXPECT_EQ(take().size(), 0U);
    files[0].putBack();
  }
  EXPECT_EQ(contentsOf("file"), "rest");
  const LocklessFileSystem lockless;
  fs::rename("file", takenBy(getppid()));
  fs::create_symlink(takenBy(getppid()), "file");
  EXPECT_EQ(take().size(), 0U);
  EXPECT_TRUE(fs::is_symlink("file"));
  const pid_t ended = startChild([] { return 0; });
  exitStatusOf(ended);
  fs::rename(takenBy(getppid()), takenBy(ended));
  EXPECT_EQ(take().size(), 1U);
}

TEST_F(FileManagerTest, FindsTheResourcesOfABundle) {
  fs::create_directory("bundle");
  for (const char* name : {"bundle/a.json", "bundle/plain", "outside.json"}) putFile(name, "{}");
  const Bundle bundle("bundle");
  EXPECT_EQ(bundle.pathForResource("a", "json"), String("bundle/a.json"));
  EXPECT_EQ(bundle.pathForResource("plain", nullptr), String("bundle/plain"));
  EXPECT_EQ(bundle.pathForResource("plain", ""), String("bundle/plain"));
  const std::pair<String, String> missing[] = {{"b", "json"},      {"../outside", "json"},
                                               {"x/../a", "json"}, {"", "json"},
                                               {nullptr, "json"},  {"..", ""},
                                               {".", ""},          {"", ""},
                                               {"a", "/json"},     {"a.json\0x"s, nullptr}};
  for (const auto& [name, type] : missing) {
    EXPECT_TRUE(bundle.pathForResource(name, type).isNull()) << name.view();
  }
  EXPECT_TRUE(Bundle(nullptr).pathForResource("a", "json").isNull());
  Application::setResourceDirectory("bundle");
  EXPECT_EQ(Bundle::mainBundle()->pathForResource("a", "json"),
            String((directory.path() / "bundle/a.json").string()));
  EXPECT_EQ(Bundle::mainBundle(), Bundle::mainBundle());
}

}  // namespace
