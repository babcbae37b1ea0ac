#include <QVCore/Internal/QVOfflineHits.h>

#include <QVCore/Internal/QVHitArchive.h>
#include <QVCore/Internal/QVKeptHits.h>
#include <QVCore/QVCoreConstants.h>
#include <QVCore/QVCoreVariables.h>
#include <QVCore/QVLogLevel.h>
#include <QVCore/QVLogger.h>
#include <QVPlatform/Archives/KeyedListArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Archives/PropertyList.h>
#include <QVPlatform/Files/AtomicFile.h>
#include <QVPlatform/Files/FileManager.h>
#include <QVPlatform/Files/TakenFile.h>
#include <QVPlatform/Foundation/CallOut.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Log.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

using QVPlatform::Array;
using QVPlatform::AtomicFile;
using QVPlatform::consoleLog;
using QVPlatform::Data;
using QVPlatform::Dictionary;
using QVPlatform::ForkMutex;
using QVPlatform::KeyedListArchiver;
using QVPlatform::OperationQueue;
using QVPlatform::PropertyList;
using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)
using QVPlatform::stringWithFormat;
using QVPlatform::TakenFile;
using QVPlatform::Value;

namespace {

// A save has three steps: it takes a snapshot of the queue and a number for it, writes the snapshot
// to a file of its own, and moves that into place. Only the first and the last are under the lock
// of `Order`, so that saves write at once, and the number tells the last step whether a newer
// snapshot is in place already.
//
// Once the queue is saved at each change, what was encoded for one save is kept for the next one.
// It is for one save at a time; one that finds it in use encodes all by itself, and so does one of
// hits that cannot be kept.
//
// A restore takes the file away from all others first and removes it last. In between the queue
// holds part of the hits, so saves are put off until all have been added; one that had begun before
// begins again, because its snapshot may lack them.

constexpr String kOutOfMemory = "out of memory while offline hits were saved or restored"_string;

constexpr std::size_t kMaximumXMLSize = 1U << 20;

enum class Verdict { kDone, kPutOff, kFailed, kAgain, kRefused };

/// What saves and restores of this process must know of each other.
class Order {
 public:
  /// Has the function take a snapshot, and gives it a number. False while hits are restored: then
  /// that ends with a save.
  template <class Function>
  bool begin(std::uint64_t& number, const Function& takeSnapshot) {
    const std::lock_guard lock(mutex_);
    if (isPutOff()) return false;
    takeSnapshot();
    number = ++latest_;
    return true;
  }

  /// Moves the file into its place, unless a newer state is there.
  Verdict finish(AtomicFile& file, std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    if (isPutOff()) return Verdict::kPutOff;
    if (number < written_) return Verdict::kDone;
    if (number <= restored_) return Verdict::kAgain;  // the snapshot knows nothing of that
    if (!file.moveIntoPlace()) return Verdict::kFailed;
    written_ = number;
    return Verdict::kDone;
  }

  void expectChanges() {
    if (areChangesExpected_) return;
    auto kept = std::make_unique<QVKeptHits>();
    if (!areChangesExpected_.exchange(true)) kept_ = kept.release();
  }

  struct GiveBack {
    void operator()(QVKeptHits* kept) const { order->kept_ = kept; }
    Order* order;
  };
  /// What is kept between saves, until it is given back; null if it is not there or in use.
  std::unique_ptr<QVKeptHits, GiveBack> takeKept() { return {kept_.exchange(nullptr), {this}}; }

  /// False while somebody else restores.
  bool beginRestoring() {
    const std::lock_guard lock(mutex_);
    return !std::exchange(isRestoring_, true);
  }

  /// Whether a save was due meanwhile.
  bool endRestoring() {
    const std::lock_guard lock(mutex_);
    isRestoring_ = false;
    restored_ = latest_;
    return std::exchange(isSaveDue_, false);
  }

 private:
  bool isPutOff() {
    isSaveDue_ = isSaveDue_ || isRestoring_;
    return isRestoring_;
  }

  std::mutex mutex_;
  std::uint64_t latest_ = 0;    // snapshot
  std::uint64_t written_ = 0;   // the one in the file
  std::uint64_t restored_ = 0;  // the last one before hits were restored
  bool isRestoring_ = false;
  bool isSaveDue_ = false;
  std::atomic<bool> areChangesExpected_ = false;
  std::atomic<QVKeptHits*> kept_ = nullptr;  // for as long as the process runs
};

constinit Order order;

/// What the parent of a fork() was at then is none of the child's business.
[[maybe_unused]] const ForkMutex& forkWatch =
    *new ForkMutex([](void* known) { new (known) Order; }, &order);

String offlineHitsPath() {
  String path = QVLogger::sharedInstance()->getPrivatePathToFile(kQVFileOfflineHits);
  if (path.isNull()) throw std::bad_alloc();
  return path;
}

void logCount(const char* format, std::size_t count) {
  if (count == 0) return;
  QVLogger::sharedInstance()->logMessageWithLevel(stringWithFormat(format, {count}),
                                                  QVLogLevelOfflineHits);
}

/// What waits at the moment, encoded by itself.
class HitsOnce {
 public:
  void look(const OperationQueue& queue) { QVKeptHits::look(queue, waiting_); }
  bool encode() const { return true; }  // not before it is written, which may tell of some hits
  std::size_t count() const { return waiting_.size(); }
  /// Nearly always all hits are plain, which takes less than half of the time, and of the archive
  /// only a part is in memory.
  bool write(AtomicFile& file) const {
    bool isWritten = true;
    KeyedListArchiver archiver(kQVFileOfflineHits, [&](std::span<const std::string_view> part) {
      return isWritten = file.append(part);
    });
    const auto rest = QVHitArchive::piecesOfPlain(waiting_, archiver);
    if (!isWritten) return false;
    return rest.empty() ? file.write(QVHitArchive::ofThoseThatFit(waiting_).view())
                        : file.append(rest) && file.flush();
  }

 private:
  std::vector<Dictionary> waiting_;
};

/// The same out of what is kept.
class HitsAgain {
 public:
  explicit HitsAgain(QVKeptHits& kept) : kept_(kept) {}

  void look(const OperationQueue& queue) { kept_.look(queue, change_); }
  bool encode() {
    pieces_ = kept_.encode(change_);
    return !pieces_.empty();
  }
  std::size_t count() const { return change_.count(); }
  bool write(AtomicFile& file) const { return file.write(pieces_); }

 private:
  QVKeptHits& kept_;
  QVKeptHits::Change change_;
  std::vector<std::string_view> pieces_;
};

void reportFailure(const AtomicFile& file) {
  consoleLog(String("offline hits could not be saved: ") + file.error());
}

/// One attempt, with the number of hits that are in the file now. It is refused when these hits
/// must be encoded in the other way.
template <class Hits>
std::pair<Verdict, std::size_t> trySave(const QVOfflineHits::HitQueue& hitQueue, Hits hits) {
  std::shared_ptr<OperationQueue> queue;
  const auto look = [&] {
    queue = hitQueue();
    if (queue) hits.look(*queue);
  };
  std::uint64_t number = 0;
  if (!order.begin(number, look)) return {Verdict::kPutOff, 0};
  if (!hits.encode()) return {Verdict::kRefused, 0};
  if (!QVCoreVariables::sharedInstance()->enableSDKInBG()) {
    logCount("Saving %@ offline Hits", hits.count());
  }
  // An empty list is written, too: older hits must not come back.
  AtomicFile file(offlineHitsPath());
  const auto verdict = hits.write(file) ? order.finish(file, number) : Verdict::kFailed;
  if (verdict == Verdict::kFailed) reportFailure(file);
  return {verdict, hits.count()};
}

/// Until there is no more to be done.
std::optional<std::size_t> saveAll(const QVOfflineHits::HitQueue& hitQueue) {
  std::pair result{Verdict::kRefused, std::size_t{0}};
  if (const auto kept = order.takeKept()) {
    do result = trySave(hitQueue, HitsAgain(*kept));
    while (result.first == Verdict::kAgain);
  }
  while (result.first == Verdict::kRefused || result.first == Verdict::kAgain) {
    result = trySave(hitQueue, HitsOnce());
  }
  return result.first == Verdict::kDone ? std::optional(result.second) : std::nullopt;
}

/// Calls the function; says so when memory runs out in it.
template <class Function>
void withinMemory(const Function& function) {
  try {
    function();
  } catch (const std::bad_alloc&) {
    consoleLog(kOutOfMemory);
  }
}

/// Gives the hit away, for which there is no copy then, but has it back when that fails.
void addOne(Value& hit, const QVOfflineHits::Add& add) {
  Dictionary data = hit.dictionary();
  if (!data.isNull()) hit = nullptr;
  try {
    add(data);
  } catch (...) {
    if (!data.isNull()) hit = data;
    throw;
  }
}

/// Whether all the hits were queued. Those for which there is no memory, or no thread any more, are
/// stored in place of what the file holds.
bool addAll(TakenFile& file, std::vector<Value> hits, const QVOfflineHits::Add& add) {
  auto hit = hits.begin();
  const auto keepRest = [&] {
    withinMemory([&] { file.replaceContents(QVHitArchive::of(Array({hit, hits.end()})).view()); });
    return false;
  };
  while (hit != hits.end()) {
    try {
      addOne(*hit, add);
    } catch (const std::bad_alloc&) {
      return keepRest();
    } catch (...) {
      try {
        QVPlatform::logStoppedException();
      } catch (...) {
        ++hit;  // a listener that was told of it ends the thread
        keepRest();
        throw;
      }
    }
    ++hit;
  }
  return true;
}

/// What the kit has written is binary; of what others put there, no more is read than takes no
/// time.
bool isWanted(const String& path) {
  return QVPlatform::FileManager::canBePropertyListAtPath(path, kMaximumXMLSize);
}

/// The hits in the archive, or nothing when it is none. What they were read from is gone then,
/// which takes as much memory as they do.
std::optional<std::vector<Value>> hitsIn(const Data& archive) {
  Array hits;
  {
    QVPlatform::KeyedUnarchiver unarchiver(archive);
    hits = unarchiver.decodeObjectForKey(kQVFileOfflineHits).array();
    if (!unarchiver.isValid()) return std::nullopt;
  }
  return std::move(hits).values();
}

/// What becomes of a file that was taken.
enum class Fate {
  kStaysTaken,  // it may hold hits that wait nowhere else: the next restore takes it, no save
                // replaces it
  kGoes,        // all its hits were queued
  kPutBack,     // it is no archive
};

Fate restoreFrom(TakenFile& file, const QVOfflineHits::Add& add) {
  Data archive = file.contents(PropertyList::kMaximumSize);
  if (archive.isNull() && errno != EFBIG) return Fate::kStaysTaken;
  auto hits = hitsIn(std::exchange(archive, nullptr));
  if (!hits) return Fate::kPutBack;
  logCount("Restoring %@ offline Hits", hits->size());
  return addAll(file, *std::move(hits), add) ? Fate::kGoes : Fate::kStaysTaken;
}

void settle(TakenFile& file, Fate fate) {
  if (fate == Fate::kGoes) file.remove();
  if (fate == Fate::kPutBack) file.putBack();
}

}  // namespace

void QVOfflineHits::expectChanges() {
  withinMemory([] { order.expectChanges(); });
}

std::optional<std::size_t> QVOfflineHits::save(const HitQueue& hitQueue) {
  std::optional<std::size_t> saved;
  if (hitQueue()) withinMemory([&] { saved = saveAll(hitQueue); });
  return saved;
}

void QVOfflineHits::restore(const HitQueue& hitQueue, const Add& add) {
  const auto isEmpty = [&] {
    const auto queue = hitQueue();
    return queue && queue->operationCount() == 0;
  };
  if (!isEmpty() || !order.beginRestoring()) return;
  std::vector<TakenFile> files;
  std::vector<Fate> fates;
  const auto end = [&] {
    if (order.endRestoring()) save(hitQueue);
    // Not before the hits are in a file again: a process that is killed here sends them twice
    // rather than not at all.
    for (std::size_t i = 0; i < fates.size(); ++i) settle(files[i], fates[i]);
  };
  bool isTaken = false;
  const auto take = [&] {
    if (!isEmpty()) return;  // somebody else has restored meanwhile
    files = TakenFile::takeAtPath(offlineHitsPath(), &isWanted);
    fates.resize(files.size(), Fate::kStaysTaken);
    isTaken = true;
  };
  try {
    withinMemory(take);
    if (!isTaken) withinMemory(take);  // a file that stays in its place is lost with the next save
    withinMemory([&] {
      for (std::size_t i = 0; i < fates.size(); ++i) fates[i] = restoreFrom(files[i], add);
    });
  } catch (...) {
    end();  // the thread ends
    throw;
  }
  end();
}
