#include <QVPlatform/Foundation/FileManager.h>
#include <QVPlatform/Foundation/Internal/SignalShield.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

namespace QVPlatform {
namespace {

namespace fs = std::filesystem;

/// Enough for every writer that may be at work on one file at the same time.
constexpr int kMaximumWriters = 64;

/// The unfinished new file. Its name is one of a few fixed ones, each belonging to whoever holds
/// the lock on the file: so a name that a killed process left is used again instead of piling up,
/// and no writer waits for another one, which may be stopped.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const fs::path& target) {
    const std::string prefix = "." + target.filename().string() + ".tmp";
    for (int i = 0; i < kMaximumWriters && descriptor_ < 0; ++i) {
      path_ = target.parent_path() / (prefix + std::to_string(i));
      if (!claim()) return;
    }
  }
  ~UnfinishedFile() {
    if (descriptor_ < 0) return;
    if (!isMoved_) unlink(path_.c_str());
    close(descriptor_);
  }
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  bool write(std::string_view bytes) {
    // A left-over may hold anything and, made by somebody else, have any mode.
    if (descriptor_ < 0 || ftruncate(descriptor_, 0) != 0) return false;
    if (fchmod(descriptor_, S_IRUSR | S_IWUSR) != 0) return false;
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
      if (written < 0 && errno != EINTR) return false;
      if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return fsync(descriptor_) == 0;
  }

  bool moveTo(const fs::path& target) {
    isMoved_ = std::rename(path_.c_str(), target.c_str()) == 0;
    return isMoved_;
  }

 private:
  /// Opens and locks the file at path_. True when that is done or another writer has it, so that
  /// the next name is to be tried; false when there is no hope.
  bool claim() {
    for (;;) {
      const int opened =
          open(path_.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY,
               S_IRUSR | S_IWUSR);
      if (opened < 0) return false;
      const bool isLocked = flock(opened, LOCK_EX | LOCK_NB) == 0;
      if (isLocked && isStillAtPath(opened)) {
        descriptor_ = opened;
        return true;
      }
      const bool isTaken = !isLocked && errno == EWOULDBLOCK;
      close(opened);
      if (!isLocked) return isTaken;
      // Between opening and locking, its owner moved it into place or gave it up: once more.
    }
  }

  bool isStillAtPath(int opened) const {
    struct stat held {};
    struct stat named {};
    return fstat(opened, &held) == 0 && lstat(path_.c_str(), &named) == 0 &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
  }

  fs::path path_;
  int descriptor_ = -1;
  bool isMoved_ = false;
};

}  // namespace

bool FileManager::writeAtomically(std::string_view bytes, const String& path) {
  const fs::path target(path.view());
  if (!target.has_filename() || path.view().find('\0') != std::string_view::npos) return false;
  const SignalShield shield;
  UnfinishedFile file(target);
  return file.write(bytes) && file.moveTo(target);
}

}  // namespace QVPlatform
