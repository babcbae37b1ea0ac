#include <QVPlatform/Files/AtomicFile.h>

#include <QVPlatform/Files/Internal/FileLock.h>
#include <QVPlatform/Foundation/Internal/SignalShield.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <system_error>

namespace QVPlatform {
namespace {

/// Enough for every writer that may be at work on one file at the same time.
constexpr int kMaximumWriters = 64;
/// Where there are no locks: far longer than a writer rests.
constexpr std::time_t kLeftOverAge = 60;

/// What stands in the way of one name and need not stand in the way of the next.
bool isOfOneName(int error) {
  static constexpr int kErrors[] = {EISDIR, ELOOP, ENXIO, EACCES, EPERM, ENODEV, EBUSY, ETXTBSY};
  return std::find(std::begin(kErrors), std::end(kErrors), error) != std::end(kErrors);
}

/// Locks the open file. Whether it can be written without harm to anybody else then: it is no pipe
/// or device, has no other name, is this user's, and nobody else writes it.
bool isFreeToUse(int opened, bool isNew) {
  struct stat file {};
  if (fstat(opened, &file) != 0 || !S_ISREG(file.st_mode)) return false;
  if (!isNew && (file.st_nlink > 1 || file.st_uid != geteuid())) return false;
  const FileLock lock = lockFile(opened);
  if (lock != FileLock::kNotToGet) return lock == FileLock::kHeld;
  return isNew || std::time(nullptr) - file.st_mtime > kLeftOverAge;
}

/// Takes one call for several pieces, since each costs more than the bytes of a small one.
bool writeAll(int file, std::span<const std::string_view> pieces) {
  std::array<iovec, 4> places;
  std::size_t begun = 0;  // bytes of the first piece that are written
  while (!pieces.empty()) {
    const std::size_t count = std::min(pieces.size(), places.size());
    for (std::size_t i = 0; i < count; ++i) {
      const std::string_view rest = pieces[i].substr(i == 0 ? begun : 0);
      places[i] = {const_cast<char*>(rest.data()), rest.size()};  // which is only read
    }
    const ssize_t written = writev(file, places.data(), static_cast<int>(count));
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) begun += static_cast<std::size_t>(written);
    for (; !pieces.empty() && begun >= pieces.front().size(); pieces = pieces.subspan(1)) {
      begun -= pieces.front().size();
    }
  }
  return true;
}

}  // namespace

AtomicFile::AtomicFile(const String& path) : target_(path.view()) {}

AtomicFile::~AtomicFile() {
  if (descriptor_ < 0) return;
  if (!path_.empty()) unlink(path_.c_str());
  unlockFile(descriptor_);
  close(descriptor_);
}

bool AtomicFile::open() {
  const std::size_t name = target_.rfind('/') + 1;  // 0 where there is no slash
  if (name == target_.size() || target_.find('\0') != std::string::npos) {
    error_ = EINVAL;
    return false;
  }
  for (int i = 0; i < kMaximumWriters; ++i) {
    path_ = target_.substr(0, name) + "." + target_.substr(name) + ".tmp" + std::to_string(i);
    if (claim()) return true;
    if (!isOfOneName(error_)) return false;
  }
  return false;
}

/// Opens and locks the file at path_.
bool AtomicFile::claim() {
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  for (;;) {
    int opened = ::open(path_.c_str(), kFlags | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    const bool isNew = opened >= 0;
    if (!isNew && errno == EEXIST) {
      opened = ::open(path_.c_str(), kFlags);
      if (opened < 0 && errno == ENOENT) continue;
    }
    error_ = opened < 0 ? errno : EBUSY;
    if (opened < 0) return false;
    const bool isFree = isFreeToUse(opened, isNew);
    if (isFree && isAtPath(opened, path_)) {
      descriptor_ = opened;
      isEmpty_ = isNew;
      return true;
    }
    unlockFile(opened);
    close(opened);
    if (!isFree) return false;
    // Between opening and locking, its owner moved it into place or gave it up: once more.
  }
}

/// A left-over may hold anything and have any mode.
bool AtomicFile::begin() {
  if (descriptor_ < 0 && !open()) return false;
  return isEmpty_ ||
         isDone(ftruncate(descriptor_, 0) == 0 && lseek(descriptor_, 0, SEEK_SET) == 0 &&
                fchmod(descriptor_, S_IRUSR | S_IWUSR) == 0);
}

bool AtomicFile::write(std::span<const std::string_view> pieces) {
  return begin() && append(pieces) && flush();
}

bool AtomicFile::append(std::span<const std::string_view> pieces) {
  if (descriptor_ < 0 && !begin()) return false;
  isEmpty_ = false;
  const SignalShield shield;
  return isDone(writeAll(descriptor_, pieces));
}

bool AtomicFile::flush() { return descriptor_ >= 0 && isDone(fsync(descriptor_) == 0); }

bool AtomicFile::isDone(bool isSuccess) {
  if (!isSuccess) error_ = errno;
  return isSuccess;
}

bool AtomicFile::moveIntoPlace() {
  if (descriptor_ < 0 || !isDone(std::rename(path_.c_str(), target_.c_str()) == 0)) return false;
  path_.clear();
  return true;
}

String AtomicFile::error() const { return String(std::generic_category().message(error_)); }

}  // namespace QVPlatform
