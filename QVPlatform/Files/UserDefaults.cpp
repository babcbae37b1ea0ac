#include <QVPlatform/Files/UserDefaults.h>

#include <QVPlatform/Application.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Files/Internal/FileLock.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Log.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

/// Far longer than a file takes to be read and written; whoever holds the lock for longer is
/// stopped, and no reason to stop this process too.
constexpr std::chrono::milliseconds kLockPatience{200};
/// For what processes agree on, which happens once in an installation and cannot be taken back:
/// long enough for a machine that is slow at just that moment.
constexpr std::chrono::milliseconds kAgreementPatience{2000};
/// Shorter than a busy writer leaves the lock free between two writes.
constexpr std::chrono::microseconds kLockInterval{50};

constexpr String kOutOfMemory = "UserDefaults: out of memory"_string;

/// What the function answers; `otherwise` when memory runs out in it.
template <class Function, class Result>
Result withinMemory(const Function& function, Result otherwise) {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    consoleLog(kOutOfMemory);
    return otherwise;
  }
}

/// Lock between the processes that share a file, held on another file beside it, since the file
/// itself is replaced by each write. Where it cannot be opened, because something else is in its
/// place, or locked, because the file system has no locks, there is none to wait for.
class SharedLock {
 public:
  SharedLock(const String& path, std::chrono::milliseconds patience)
      : descriptor_(open(path.UTF8String(),
                         O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                         S_IRUSR | S_IWUSR)) {
    const auto giveUp = std::chrono::steady_clock::now() + patience;
    while (descriptor_ >= 0 && (state_ = lockFile(descriptor_)) == FileLock::kTaken) {
      if (std::chrono::steady_clock::now() >= giveUp) return;
      std::this_thread::sleep_for(kLockInterval);
    }
  }
  ~SharedLock() {
    if (descriptor_ < 0) return;
    if (state_ == FileLock::kHeld) unlockFile(descriptor_);
    close(descriptor_);
  }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

  bool isTaken() const { return state_ == FileLock::kTaken; }

 private:
  int descriptor_;
  FileLock state_ = FileLock::kNotToGet;
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

/// What the file holds; null when it is missing or damaged, and nothing when it cannot be read at
/// the moment.
std::optional<Dictionary> readFile(const String& path) {
  if (!FileManager::canBePropertyListAtPath(path)) return Dictionary(nullptr);
  const Data bytes = FileManager::contentsAtPath(path, PropertyList::kMaximumSize);
  const bool isDamaged = bytes.isNull() && (errno == EFBIG || errno == ENOENT);
  if (bytes.isNull() && !isDamaged) return std::nullopt;
  return PropertyList::valueWithData(bytes.view()).dictionary();
}

/// Seconds and nanoseconds.
using Moment = std::pair<std::time_t, long>;

/// 0 of a file that is not there.
Moment timeOfWriting(const String& path) {
  struct stat file {};
  if (stat(path.UTF8String(), &file) != 0) return {};
  return {file.st_mtim.tv_sec, file.st_mtim.tv_nsec};
}

using Table = std::map<String, Value>;

Table tableOf(const Dictionary& dictionary) {
  const auto entries = dictionary.snapshot();
  return {entries->begin(), entries->end()};
}

/// What is not yet in the file.
struct Changes {
  Table values;    // nil for a key that was removed
  Table expected;  // for changes that are made only if the file holds that
};

/// Lays the entries over those of the table. Needs no memory; what is left in `entries` is what
/// they replaced.
void lay(Table& entries, Table& table) noexcept {
  table.merge(entries);
  for (auto& [key, value] : entries) std::swap(value, table.find(key)->second);
}

/// Removes the changes for which the file holds something else than they expect.
void removeOvertaken(Changes& changes, const Dictionary& stored) {
  if (stored.isNull()) return;
  std::erase_if(changes.expected, [&](const Table::value_type& condition) {
    const bool isOvertaken = stored.get(condition.first) != condition.second;
    if (isOvertaken) changes.values.erase(condition.first);
    return isOvertaken;
  });
}

Data fileOf(const Table& table) {
  return PropertyList::dataWithValue(
      Dictionary(std::vector<Dictionary::Entry>(table.begin(), table.end())));
}

/// The entries without those that no file can hold, and those for which there is no room beside
/// the others. A file of somebody else may bring such, or many large ones come together.
Table thoseThatFit(const Table& table) {
  Table fitting;
  std::size_t room = PropertyList::kMaximumSize / 2;
  for (const auto& [key, value] : table) {
    const std::size_t size = value.isNil() ? 0 : fileOf({{key, value}}).view().size();
    if (size > 0 && size <= room) {
      room -= size;
      fitting.emplace(key, value);
    } else if (!value.isNil()) {
      consoleLog(stringWithFormat("UserDefaults: \"%@\" is too large to be written", {key}));
    }
  }
  return fitting;
}

bool write(const Table& table, const String& path) {
  const Data whole = fileOf(table);
  return FileManager::writeAtomically(whole.isNull() ? fileOf(thoseThatFit(table)) : whole, path);
}

}  // namespace

struct UserDefaults::State {
  Value get(const String& key) {
    const Lock lock(mutex_);
    load();
    const auto place = values_.find(key);
    return place == values_.end() ? Value() : place->second;
  }

  void set(const String& key, const Value& value) {
    Table entry{{key, value}};
    Table change = entry;
    Table::node_type dropped;
    const Lock lock(mutex_);
    dropped = changes_.expected.extract(key);
    lay(entry, values_);
    lay(change, changes_.values);
  }

  bool synchronize() {
    const Lock oneAtATime(synchronizing_);
    return synchronizeAlone(kLockPatience);
  }

  /// Once before, to know what the file holds.
  bool clear() {
    const Lock oneAtATime(synchronizing_);
    const bool isKnown = synchronizeAlone(kLockPatience);
    removeAll();
    return synchronizeAlone(kLockPatience) && isKnown;
  }

  void exchange(const Value& expected, const String& key, const Value& value) {
    const Lock oneAtATime(synchronizing_);
    setIf(expected, key, value);
    synchronizeAlone(kAgreementPatience);
  }

 private:
  void removeAll() {
    const Lock lock(mutex_);
    load();
    Table removed = values_;
    for (auto& entry : removed) entry.second = nullptr;
    Table changes = removed;
    changes_.expected.clear();
    values_.swap(removed);
    lay(changes, changes_.values);
  }

  /// A change that another one is made upon goes into the file with it, if at all.
  void setIf(const Value& expected, const String& key, const Value& value) {
    Table entry{{key, value}};
    Table change = entry;
    Table condition{{key, expected}};
    const Lock lock(mutex_);
    load();
    const auto place = values_.find(key);
    if ((place == values_.end() ? Value() : place->second) != expected) return;
    if (!changes_.values.contains(key)) changes_.expected.merge(condition);
    lay(entry, values_);
    lay(change, changes_.values);
  }

  bool synchronizeAlone(std::chrono::milliseconds patience) QV_REQUIRES(synchronizing_) {
    const Paths path = paths();
    // A lock that was not to be had once is not waited for again before it is free, unless the file
    // was written since, which shows that others pass it on to each other.
    const bool isPatient = !stuckSince_ || *stuckSince_ != timeOfWriting(path.file);
    const SharedLock lock(path.lock, isPatient ? patience : patience * 0);
    stuckSince_.reset();
    if (lock.isTaken()) stuckSince_ = timeOfWriting(path.file);
    if (lock.isTaken()) return false;
    const auto stored = readFile(path.file);
    return stored && mergeInto(*stored, path.file);
  }

  bool mergeInto(const Dictionary& stored, const String& path) {
    Changes taken = takeChanges();
    bool isWritten = false;
    try {
      removeOvertaken(taken, stored);
      Table merged = stored.isNull() ? values() : tableOf(stored);
      Table changes = taken.values;
      lay(changes, merged);
      isWritten = (taken.values.empty() && !stored.isNull()) || write(merged, path);
      finish(std::move(merged));
    } catch (const std::bad_alloc&) {
      giveBack(taken);
      throw;
    }
    if (!isWritten) giveBack(taken);
    return isWritten;
  }

  /// The file is read when it is first asked for.
  void load() QV_REQUIRES(mutex_) {
    if (isLoaded_) return;
    const auto stored = readFile(paths().file);
    if (!stored) return;  // the next one tries again
    Table known = tableOf(*stored);
    values_.merge(known);  // what was set before stays
    isLoaded_ = true;
  }

  Table values() {
    const Lock lock(mutex_);
    load();
    return values_;
  }

  Changes takeChanges() noexcept {
    const Lock lock(mutex_);
    return std::exchange(changes_, {});
  }

  /// For the next time; what was changed meanwhile counts.
  void giveBack(Changes& taken) noexcept {
    const Lock lock(mutex_);
    for (const auto& change : changes_.values) taken.expected.erase(change.first);
    changes_.expected.merge(taken.expected);
    changes_.values.merge(taken.values);
  }

  /// Changes that were made meanwhile stay on top of the merged values.
  void finish(Table merged) {
    const Lock lock(mutex_);
    Table changes = changes_.values;
    lay(changes, merged);
    values_.swap(merged);
    isLoaded_ = true;
  }

  Mutex synchronizing_;  // taken before mutex_
  /// When the file was written last, at a time-out.
  std::optional<Moment> stuckSince_ QV_GUARDED_BY(synchronizing_);
  Mutex mutex_;
  Table values_ QV_GUARDED_BY(mutex_);  // nil for a key that was removed
  Changes changes_ QV_GUARDED_BY(mutex_);
  bool isLoaded_ QV_GUARDED_BY(mutex_) = false;
};

UserDefaults::UserDefaults(State& state) noexcept : state_(state) {}

UserDefaults& UserDefaults::standardUserDefaults() {
  struct Shared {
    State state;
    // The child of a fork() begins with what the file holds: another thread may have been in here.
    ForkMutex forkWatch{[](void* known) { new (known) State; }, &state};
    UserDefaults defaults{state};
  };
  return Lasting<Shared>::object().defaults;  // the file is read later
}

namespace {

/// A copy in its place, since being in the file's dictionary makes it one level deeper. Nothing,
/// with a line on the console log, when no file can hold it.
std::optional<Value> copyToKeep(const Value& value, const String& key) {
  if (key.isNull()) return std::nullopt;
  Value copy = PropertyList::copy(Dictionary({{key, value}})).dictionary().get(key);
  if (!copy.isNil() || value.isNil()) return copy;
  consoleLog(stringWithFormat(
      "UserDefaults: the value for \"%@\" is not a property list or too large", {key}));
  return std::nullopt;
}

}  // namespace

Value UserDefaults::objectForKey(const String& key) const {
  return withinMemory([&] { return PropertyList::copy(state_.get(key)); }, Value());
}

void UserDefaults::setObjectForKey(const Value& value, const String& key) {
  const auto set = [&] {
    const auto copy = copyToKeep(value, key);
    if (copy) state_.set(key, *copy);
    return copy.has_value();
  };
  withinMemory(set, false);
}

Value UserDefaults::exchangeObjectForKey(const Value& expected, const Value& value,
                                         const String& key) {
  const auto exchange = [&] {
    const auto copy = copyToKeep(value, key);
    if (copy) state_.exchange(expected, key, *copy);
    return copy.has_value();
  };
  withinMemory(exchange, false);
  return objectForKey(key);
}

bool UserDefaults::removeAllObjects() {
  return withinMemory([&] { return state_.clear(); }, false);
}

bool UserDefaults::synchronize() {
  return withinMemory([&] { return state_.synchronize(); }, false);
}

}  // namespace QVPlatform
