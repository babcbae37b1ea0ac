#include <sys/file.h>
#include <sys/mount.h>

#include "tests/support/LocklessFileSystem.h"
#include "tests/support/Test.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLimit = 1000;

class FileManagerTest : public ::testing::Test {
 protected:
  String path(const std::string& name) const { return String((directory.path() / name).string()); }
  /// Names in the directory, those of unfinished files included.
  std::size_t fileCount() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory.path()), {}));
  }

  QVTest::TemporaryDirectory directory;
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
  putFile(path("empty").UTF8String(), "");
  putFile(path("largest").UTF8String(), std::string(kLimit, 'x'));
  putFile(path("larger").UTF8String(), std::string(kLimit + 1, 'x'));
  ASSERT_EQ(mkfifo(path("pipe").UTF8String(), 0600), 0);
  const std::pair<String, Data> cases[] = {
      {path("empty"), Data("")}, {path("largest"), Data(std::string(kLimit, 'x'))},
      {path("larger"), nullptr}, {path("missing"), nullptr},
      {path("pipe"), nullptr},   {path(""), nullptr},
      {"/dev/zero", nullptr},    {path("empty\0x"s), nullptr},
      {String(), nullptr},       {"", nullptr},
  };
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(FileManager::contentsAtPath(name, kLimit), expected) << name.view();
  }
  // A file of the kernel does not tell its size.
  EXPECT_FALSE(FileManager::contentsAtPath("/proc/self/stat", kLimit).string().isEmpty());
  EXPECT_TRUE(FileManager::contentsAtPath("/proc/self/stat", 5).isNull());
}

TEST_F(FileManagerTest, TellsWhyATextCannotBeRead) {
  putFile(path("text").UTF8String(), "caf\u00e9");
  putFile(path("bytes").UTF8String(), "caf\xe9");
  String error;
  EXPECT_EQ(FileManager::stringWithContentsOfFile(path("text"), &error), String("caf\u00e9"));
  EXPECT_TRUE(error.isNull());
  // 64 MiB are read, and not a byte more.
  for (const char* name : {"largest", "larger"}) {
    putFile(path(name).UTF8String(), "");
    fs::resize_file(path(name).UTF8String(), (64U << 20) + (name == "larger"s ? 1 : 0));
  }
  EXPECT_EQ(FileManager::stringWithContentsOfFile(path("largest")).view().size(), 64U << 20);
  const std::pair<String, std::string> cases[] = {{path("missing"), "No such file or directory"},
                                                  {path("bytes"), "it is not UTF-8"},
                                                  {path("larger"), "File too large"},
                                                  {path(""), "Invalid argument"}};
  for (const auto& [name, reason] : cases) {
    EXPECT_TRUE(FileManager::stringWithContentsOfFile(name, &error).isNull());
    EXPECT_TRUE(error.view().ends_with(reason)) << error.view();
  }
  EXPECT_TRUE(FileManager::stringWithContentsOfFile(path("missing")).isNull());
}

TEST_F(FileManagerTest, MakesAndRemovesOneLevel) {
  EXPECT_FALSE(FileManager::createDirectoryAtPath(path("a/b")));
  EXPECT_TRUE(FileManager::createDirectoryAtPath(path("a")));
  EXPECT_FALSE(FileManager::createDirectoryAtPath(path("a")));
  EXPECT_EQ(modeOf(directory.path() / "a"), 0700U);
  EXPECT_TRUE(FileManager::writeAtomically("x", path("a/file")));
  EXPECT_FALSE(FileManager::removeItemAtPath(path("a")));
  EXPECT_TRUE(FileManager::removeItemAtPath(path("a/file")));
  EXPECT_TRUE(FileManager::removeItemAtPath(path("a")));
  EXPECT_FALSE(FileManager::removeItemAtPath(path("a")));
}

TEST_F(FileManagerTest, LeavesEverythingAsItWasWhenItCannotWrite) {
  putFile(path("file").UTF8String(), "old");
  fs::create_directories(path("full/inner").UTF8String());
  for (const String& target :
       {path("missing/file"), path("file/inner"), path("full"), path(""), String(), path("a\0b"s),
        path(std::string(300, 'n')), String("/proc/self/status")}) {
    EXPECT_FALSE(FileManager::writeAtomically("new", target)) << target.view();
  }
  EXPECT_FALSE(FileManager::writeAtomically(Data(), path("file")));
  EXPECT_EQ(contentsOf(path("file").UTF8String()), "old");
  EXPECT_EQ(fileCount(), 2U);
}

TEST_F(FileManagerTest, KeepsTheOldFileWhenTheDiskIsFull) {
  const std::string mountPoint = directory.path();
  // In a mount namespace of its own, so that nothing stays mounted whatever happens.
  const int status = QVTest::runInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", mountPoint.c_str(), "tmpfs", 0, "size=256k") != 0) {
      return 2;
    }
    if (!FileManager::writeAtomically(contents(0), path("file"))) return 3;
    if (FileManager::writeAtomically(std::string(300000, 'x'), path("file"))) return 4;
    if (contentsOf(path("file").UTF8String()) != contents(0) || fileCount() != 1) return 5;
    return FileManager::writeAtomically(contents(1), path("file")) ? 0 : 6;
  });
  if (status == 2) GTEST_SKIP() << "no right to mount a file system";
  EXPECT_EQ(status, 0);
}

TEST_F(FileManagerTest, KeepsAFileWholeThatManyWriteAtOnceOfWhomSomeAreKilled) {
  ASSERT_TRUE(FileManager::writeAtomically(contents(0), path("file")));
  const auto write = [&](int count) {
    for (int number = 0; number != count; ++number) {
      if (!FileManager::writeAtomically(contents(number), path("file"))) return 1;
    }
    return 0;
  };
  const auto isWhole = [&] {
    const std::string bytes = contentsOf(path("file").UTF8String());
    return bytes == contents(0) || bytes == contents(1);
  };
  const pid_t writer = QVTest::startChild([&] { return write(25); });
  std::vector<pid_t> killed;
  for (int i = 0; i < 8; ++i) killed.push_back(QVTest::startChild([&] { return write(-1); }));
  std::vector<std::jthread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { EXPECT_EQ(write(25), 0); });
  for (const pid_t child : killed) {
    for (int reads = 0; reads < 15; ++reads) EXPECT_TRUE(isWhole());
    kill(child, SIGKILL);
    EXPECT_EQ(QVTest::exitStatusOf(child), -1);
  }
  threads.clear();
  EXPECT_EQ(QVTest::exitStatusOf(writer), 0);
  EXPECT_TRUE(isWhole());
  EXPECT_LE(fileCount(), 1 + killed.size());
  EXPECT_EQ(write(1), 0);
}

TEST_F(FileManagerTest, WritesAPrivateFileBesideALeftOverOfAnyKind) {
  const auto temporary = [&](int number) {
    return std::string(path(".file.tmp" + std::to_string(number)).view());
  };
  for (const std::string& old : {temporary(0), std::string(path("file").view())}) {
    putFile(old, std::string(1000, 'x'));
    fs::permissions(old, fs::perms::all);
  }
  EXPECT_TRUE(FileManager::writeAtomically("new", path("file")));
  EXPECT_EQ(contentsOf(path("file").UTF8String()), "new");
  EXPECT_EQ(modeOf(path("file").UTF8String()), 0600U);
  EXPECT_EQ(fileCount(), 1U);
  // What is somebody else's is left alone: what a link points to, by either kind of link, too.
  putFile(path("other").UTF8String(), "other");
  fs::create_symlink("other", temporary(0));
  fs::create_hard_link(path("other").UTF8String(), temporary(1));
  fs::create_directory(temporary(2));
  ASSERT_EQ(mkfifo(temporary(3).c_str(), 0600), 0);
  const int reader = open(temporary(3).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  putFile(temporary(4), "another user's");
  const bool isForeign = chown(temporary(4).c_str(), 65534, 65534) == 0;  // root alone can
  const std::size_t before = fileCount() - (isForeign ? 0 : 1);
  EXPECT_TRUE(FileManager::writeAtomically("", path("file")));
  EXPECT_EQ(contentsOf(path("file").UTF8String()), "");
  EXPECT_EQ(contentsOf(path("other").UTF8String()), "other");
  EXPECT_EQ(fileCount(), before);
  close(reader);
}

TEST_F(FileManagerTest, LeavesTheLockOnAFileToNoChild) {
  const fs::path place(path("file").UTF8String());
  auto file = std::make_unique<AtomicFile>(path("file"));
  ASSERT_TRUE(file->write("new"));
  const pid_t child = QVTest::startChild([] { return pause(); });
  ASSERT_TRUE(file->moveIntoPlace());
  file.reset();
  const int opened = open(place.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(flock(opened, LOCK_EX | LOCK_NB), 0);
  close(opened);
  kill(child, SIGKILL);
  QVTest::exitStatusOf(child);
}

TEST_F(FileManagerTest, WritesWhereThereAreNoLocks) {
  const QVTest::LocklessFileSystem lockless;
  // One of these is being written, as far as can be told; the other one was left long ago.
  for (const char* name : {".file.tmp0", ".file.tmp1"}) putFile(path(name).UTF8String(), "x");
  fs::last_write_time(path(".file.tmp1").UTF8String(),
                      fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_TRUE(FileManager::writeAtomically("new", path("file")));
  EXPECT_EQ(contentsOf(path("file").UTF8String()), "new");
  EXPECT_EQ(contentsOf(path(".file.tmp0").UTF8String()), "x");
  EXPECT_EQ(fileCount(), 2U);
}

TEST_F(FileManagerTest, TakesNothingButFilesOfNobody) {
  const auto take = [&] {
    return TakenFile::takeAtPath(path("file"), [](const String&) { return true; });
  };
  const auto takenBy = [&](pid_t owner) {
    const std::string number = std::to_string(owner);
    return fs::path(path(".file.taken00000000000000000001-" + number + "-0").view());
  };
  putFile(path("file").UTF8String(), "whole");
  fs::create_directory(takenBy(1));
  {
    auto files = take();
    ASSERT_EQ(files.size(), 1U);
    ASSERT_TRUE(files[0].replaceContents("rest"));
    EXPECT_EQ(take().size(), 0U);
    files[0].putBack();
  }
  EXPECT_EQ(contentsOf(path("file").UTF8String()), "rest");
  const LocklessFileSystem lockless;
  fs::rename(path("file").UTF8String(), takenBy(getppid()));
  fs::create_symlink(takenBy(getppid()), path("file").UTF8String());
  EXPECT_EQ(take().size(), 0U);
  EXPECT_TRUE(fs::is_symlink(path("file").UTF8String()));
  const pid_t ended = startChild([] { return 0; });
  exitStatusOf(ended);
  fs::rename(takenBy(getppid()), takenBy(ended));
  EXPECT_EQ(take().size(), 1U);
}

TEST_F(FileManagerTest, FindsTheResourcesOfABundle) {
  fs::create_directory(path("bundle").UTF8String());
  for (const char* name : {"bundle/a.json", "bundle/plain", "outside.json"}) {
    putFile(path(name).UTF8String(), "{}");
  }
  const Bundle bundle(path("bundle"));
  EXPECT_EQ(bundle.pathForResource("a", "json"), path("bundle/a.json"));
  EXPECT_EQ(bundle.pathForResource("plain", nullptr), path("bundle/plain"));
  EXPECT_EQ(bundle.pathForResource("plain", ""), path("bundle/plain"));
  const std::pair<String, String> missing[] = {
      {"b", "json"}, {"../outside", "json"}, {"x/../a", "json"},
      {"", "json"},  {nullptr, "json"},      {"..", ""},
      {".", ""},     {"a", "/json"},         {"a.json\0x"s, nullptr}};
  for (const auto& [name, type] : missing) {
    EXPECT_TRUE(bundle.pathForResource(name, type).isNull()) << name.view();
  }
  EXPECT_TRUE(Bundle(nullptr).pathForResource("a", "json").isNull());
  Application::setResourceDirectory(path("bundle"));
  EXPECT_EQ(Bundle::mainBundle()->pathForResource("a", "json"), path("bundle/a.json"));
  EXPECT_EQ(Bundle::mainBundle(), Bundle::mainBundle());
}

}  // namespace
