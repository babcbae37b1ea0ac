#include <QVPlatform/Application.h>
#include <QVPlatform/Foundation/FileManager.h>
#include <QVPlatform/Foundation/Log.h>
#include <QVPlatform/Foundation/PropertyList.h>
#include <QVPlatform/Foundation/UserDefaults.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>

namespace QVPlatform {
namespace {

/// Far longer than a file takes to be read and written; whoever holds the lock for longer is
/// stopped, and no reason to stop this process too.
constexpr std::chrono::seconds kLockPatience{5};
constexpr std::chrono::milliseconds kLockInterval{2};

/// Lock between the processes that share a file, held on another file beside it, since the file
/// itself is replaced by each write.
class FileLock {
 public:
  explicit FileLock(const String& path)
      : descriptor_(open(path.UTF8String(),
                         O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                         S_IRUSR | S_IWUSR)) {
    const auto giveUp = std::chrono::steady_clock::now() + kLockPatience;
    while (descriptor_ >= 0 && std::chrono::steady_clock::now() < giveUp) {
      isHeld_ = flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
      if (isHeld_ || (errno != EWOULDBLOCK && errno != EINTR)) break;
      std::this_thread::sleep_for(kLockInterval);
    }
  }
  ~FileLock() {
    if (descriptor_ < 0) return;
    // Closing alone would leave it to a process forked meanwhile, which shares the descriptor.
    if (isHeld_) flock(descriptor_, LOCK_UN);
    close(descriptor_);
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool isHeld() const { return isHeld_; }

 private:
  int descriptor_;
  bool isHeld_ = false;
};

struct Paths {
  String file;
  String lock;
};

/// Makes the directory where it is missing.
Paths paths() {
  const String directory = Application::makeLibraryDirectory() + String("/Preferences");
  FileManager::createDirectoryAtPath(directory);
  std::string name(Application::identifier().view());
  for (char& c : name) {
    if (c == '/' || c == '\0') c = '-';
  }
  return {directory + String("/" + name + ".plist"), directory + String("/." + name + ".lock")};
}

/// What the file holds; null when it is missing or damaged.
Dictionary readFile(const String& path) {
  const Data bytes = FileManager::contentsAtPath(path, PropertyList::kMaximumSize);
  return PropertyList::valueWithData(bytes.view()).dictionary();
}

}  // namespace

class UserDefaults::Implementation {
 public:
  using Table = std::unordered_map<String, Value>;

  Implementation() { lay(readFile(paths().file).entries(), values_); }

  Value get(const String& key) const {
    const std::lock_guard lock(mutex_);
    const auto place = values_.find(key);
    return place == values_.end() ? Value() : place->second;
  }

  void set(const String& key, const Value& value) {
    const std::lock_guard lock(mutex_);
    values_[key] = value;
    changes_[key] = value;
  }

  /// What `amend` changes, having seen the file's contents or null, is written with the rest; it is
  /// called in any case.
  bool synchronize(const std::function<void(const Dictionary& stored)>& amend) {
    const std::lock_guard oneAtATime(synchronizing_);
    const Paths path = paths();
    const FileLock lock(path.lock);
    const Dictionary stored = lock.isHeld() ? readFile(path.file) : Dictionary();
    amend(stored);
    if (!lock.isHeld()) return false;
    const Table changes = takeChanges();
    Table merged = stored.isNull() ? values() : Table();
    lay(stored.entries(), merged);
    lay(changes, merged);
    const bool isWritten = (changes.empty() && !stored.isNull()) || write(merged, path.file);
    finish(std::move(merged), isWritten ? Table() : changes);
    return isWritten;
  }

 private:
  template <class Entries>
  static void lay(const Entries& entries, Table& table) {
    for (const auto& [key, value] : entries) table.insert_or_assign(key, value);
  }

  static bool write(const Table& table, const String& path) {
    const Value contents = Dictionary(std::vector<Dictionary::Entry>(table.begin(), table.end()));
    return FileManager::writeAtomically(PropertyList::dataWithValue(contents), path);
  }

  Table values() const {
    const std::lock_guard lock(mutex_);
    return values_;
  }

  Table takeChanges() {
    const std::lock_guard lock(mutex_);
    return std::exchange(changes_, {});
  }

  /// Changes that were made meanwhile stay on top of the merged values, and of those that could not
  /// be written.
  void finish(Table merged, Table unwritten) {
    const std::lock_guard lock(mutex_);
    lay(changes_, unwritten);
    lay(changes_, merged);
    changes_.swap(unwritten);
    values_.swap(merged);
  }

  std::mutex synchronizing_;  // taken before mutex_
  mutable std::mutex mutex_;
  Table values_;   // nil for a key that was removed
  Table changes_;  // not yet in the file; likewise
};

UserDefaults::UserDefaults() : implementation_(std::make_unique<Implementation>()) {}

UserDefaults& UserDefaults::standardUserDefaults() {
  static UserDefaults& defaults = *new UserDefaults;  // never destroyed: threads may outlive main
  return defaults;
}

Value UserDefaults::objectForKey(const String& key) const {
  return PropertyList::copy(implementation_->get(key));
}

void UserDefaults::setObjectForKey(const Value& value, const String& key) {
  if (key.isNull()) return;
  // Copied in its place, since being in the file's dictionary makes it one level deeper.
  const Value copy = PropertyList::copy(Dictionary({{key, value}})).dictionary().get(key);
  if (copy.isNil() && !value.isNil()) {
    consoleLog(
        stringWithFormat("UserDefaults: the value for \"%@\" is not a property list", {key}));
    return;
  }
  implementation_->set(key, copy);
}

Value UserDefaults::exchangeObjectForKey(const Value& expected, const Value& value,
                                         const String& key) {
  implementation_->synchronize([&](const Dictionary& stored) {
    const bool isInFile = stored.isNull() || stored.get(key) == expected;
    if (isInFile && objectForKey(key) == expected) setObjectForKey(value, key);
  });
  return objectForKey(key);
}

bool UserDefaults::synchronize() {
  return implementation_->synchronize([](const Dictionary&) {});
}

}  // namespace QVPlatform
