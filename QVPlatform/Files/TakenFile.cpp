#include <QVPlatform/Files/TakenFile.h>

#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Files/Internal/FileLock.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

namespace QVPlatform {
namespace {

/// Digits of a time in nanoseconds, for centuries to come.
constexpr std::size_t kTimeWidth = 20;

/// The directory of the path, with the slash at its end if there is one.
std::string directoryOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

/// What the names of taken files begin with.
std::string prefixOf(const std::string& place) {
  return "." + place.substr(place.rfind('/') + 1) + ".taken";
}

/// A path that no other process or thread ever uses. Names sort by age.
std::string newPath(const std::string& place) {
  static constinit std::atomic<unsigned> count{0};
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  std::string time = std::to_string(std::chrono::nanoseconds(now).count());
  time.insert(0, kTimeWidth - std::min(time.size(), kTimeWidth), '0');
  return directoryOf(place) + prefixOf(place) + time + "-" + std::to_string(getpid()) + "-" +
         std::to_string(count++);
}

/// The process that made the path; 0 if it tells of none.
pid_t ownerOf(const std::string& path, const std::string& place) {
  const std::size_t time = directoryOf(place).size() + prefixOf(place).size();
  const std::size_t digits = std::min(path.size(), time + kTimeWidth + 1);
  pid_t owner = 0;
  std::from_chars(path.data() + digits, path.data() + path.size(), owner);
  return owner;
}

/// False when there is none, or something else.
bool mayBeRegular(const std::string& path) {
  struct stat file {};
  return lstat(path.c_str(), &file) == 0 ? S_ISREG(file.st_mode) : errno != ENOENT;
}

/// All that was taken and is still there.
std::vector<std::string> takenPaths(const std::string& place) {
  const std::string directory = directoryOf(place);
  const std::string prefix = prefixOf(place);
  std::vector<std::string> paths;
  const char* name = directory.empty() ? "." : directory.c_str();
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(name), &closedir);
  while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
    if (std::string_view(entry->d_name).starts_with(prefix)) {
      paths.push_back(directory + entry->d_name);
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

}  // namespace

std::vector<TakenFile> TakenFile::takeAtPath(const String& path,
                                             bool (*isWanted)(const String& path)) {
  const std::string place(path.view());
  std::vector<TakenFile> files;
  const bool isThere = mayBeRegular(place) && isWanted(path);
  const bool isMoved = isThere && std::rename(place.c_str(), newPath(place).c_str()) == 0;
  std::vector<std::string> paths = takenPaths(place);
  if (isThere && !isMoved) paths.push_back(place);  // taken where it is, by its lock alone
  for (std::string& taken : paths) {
    TakenFile file(place, std::move(taken));
    if (file.lock()) files.push_back(std::move(file));
  }
  return files;
}

TakenFile::TakenFile(std::string place, std::string path) noexcept
    : place_(std::move(place)), path_(std::move(path)) {}

TakenFile::TakenFile(TakenFile&& other) noexcept
    : place_(std::move(other.place_)),
      path_(std::move(other.path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      replacement_(std::move(other.replacement_)) {}

TakenFile::~TakenFile() {
  if (descriptor_ < 0) return;
  unlockFile(descriptor_);
  close(descriptor_);
}

/// Whether the file is this object's now.
bool TakenFile::lock() {
  descriptor_ = open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  struct stat file {};
  if (descriptor_ < 0 || fstat(descriptor_, &file) != 0 || !S_ISREG(file.st_mode)) return false;
  const FileLock lock = lockFile(descriptor_);
  if (lock == FileLock::kTaken || (lock == FileLock::kNotToGet && !takeOver())) return false;
  return isAtPath(descriptor_, path_);
}

/// Without locks: of all that want what an ended process left, the one that renames it gets it.
bool TakenFile::takeOver() {
  const pid_t owner = ownerOf(path_, place_);
  if (owner > 0 && owner != getpid() && (kill(owner, 0) == 0 || errno == EPERM)) return false;
  std::string path = newPath(place_);
  const bool isMine = std::rename(path_.c_str(), path.c_str()) == 0;
  path_ = std::move(path);
  return isMine;
}

Data TakenFile::contents(std::size_t maximumSize) const {
  return FileManager::contentsAtPath(path(), maximumSize);
}

void TakenFile::putBack() noexcept {
  renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, place_.c_str(), RENAME_NOREPLACE);
}

void TakenFile::remove() noexcept {
  if (path_ != place_ || isAtPath(descriptor_, path_)) unlink(path_.c_str());
}

bool TakenFile::replaceContents(std::string_view bytes) {
  replacement_ = std::make_unique<AtomicFile>(path());
  return replacement_->write(bytes) && replacement_->moveIntoPlace();
}

}  // namespace QVPlatform
