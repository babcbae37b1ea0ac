// Waiting hits saved and restored by the network manager, 2,000 and a million of them, beside a
// plain write of as many bytes and beside the same rows in an SQLite file; and what a change of the
// queue costs in the background, where each one saves it whole. All files lie in the system's
// directory for temporary ones: TMPDIR chooses the file system that is measured.

#include "support/Basics.h"
#include "support/KeepAliveServer.h"

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/OperationQueue.h>
#include <QVPlatform/Files/FileManager.h>
#include <tests/support/ScriptedReachability.h>
#include <tests/support/TemporaryDirectory.h>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using QVBenchmark::fail;
using QVBenchmark::filled;
using QVBenchmark::KeepAliveServer;
using QVPlatform::Data;
using QVPlatform::Dictionary;
using QVPlatform::FileManager;
using QVPlatform::OperationQueue;
using QVPlatform::String;

constexpr int kHits = 2000;
constexpr int kNoLimit = 2'000'000;
constexpr std::size_t kURLSize = 120;
constexpr std::size_t kBodySize = 300;
constexpr std::size_t kMaximumFileSize = INT32_MAX;

namespace fs = std::filesystem;

/// The most memory that the process ever had.
double peakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss);
}

struct Hit {
  int id = 0;
  std::string type;
  std::string url;
  std::string body;
};

std::string url;

/// The hit of this number. Each is another one.
Hit hit(int id) {
  const std::string number = "&n=" + std::to_string(id) + "&x=";
  return {id, std::string(kQVNotification_HTTPResponse.view()), filled(url + number, kURLSize),
          filled("s=1" + number, kBodySize)};
}

std::shared_ptr<QVNetworkManager> manager() { return QVNetworkManager::sharedInstance(); }

std::string offlineHitsPath() {
  return std::string(QVLogger::sharedInstance()->getPrivatePathToFile(kQVFileOfflineHits).view());
}

/// Gives the manager a new suspended queue, without hits.
void emptyQueue() {
  const auto queue = std::make_shared<OperationQueue>();
  queue->setSuspended(true);
  manager()->setOperationQueue(queue);
}

void post(int id) {
  const Hit posted = hit(id);
  QVPlatform::NotificationCenter::defaultCenter()->postNotification(QVPlatform::Notification(
      kQVNotification_HTTPRequest, nullptr,
      {{kQVUserInfo_URLKey, posted.url}, {kQVUserInfo_POSTData, posted.body}}));
}

/// Gives the manager a new suspended queue with so many hits.
void fillQueue(std::int64_t count) {
  manager()->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(200000, kNoLimit);
  emptyQueue();
  for (int id = 0; id < count; ++id) post(id);
}

Data savedFile() { return FileManager::contentsAtPath(offlineHitsPath(), kMaximumFileSize); }

/// What the manager saves of so many hits.
Data savedHits(std::int64_t count) {
  fillQueue(count);
  manager()->saveAllHits();
  return savedFile();
}

/// Its times are those of one hit.
void save(benchmark::State& state) {
  fillQueue(state.range(0));
  while (state.KeepRunningBatch(state.range(0))) manager()->saveAllHits();
  state.counters["bytes"] = static_cast<double>(fs::file_size(offlineHitsPath()));
  state.counters["peak"] = peakKilobytes();
}

bool writeFlushRename(std::string_view bytes, const std::string& path) {
  const std::string aside = path + ".new";
  const int file = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool isWritten = write(file, bytes.data(), bytes.size()) == ssize_t(bytes.size());
  const bool isFlushed = fsync(file) == 0;
  close(file);
  return isWritten && isFlushed && std::rename(aside.c_str(), path.c_str()) == 0;
}

/// One time of it is divided by `batch`.
void writePlainly(benchmark::State& state, const Data& bytes, std::int64_t batch) {
  const std::string path = offlineHitsPath() + ".plain";
  while (state.KeepRunningBatch(batch)) {
    if (!writeFlushRename(bytes.view(), path)) fail("The file was not written.");
  }
}

/// Writes what save() writes. Its times are those of one hit, too.
void savePlainly(benchmark::State& state) {
  writePlainly(state, savedHits(state.range(0)), state.range(0));
}

/// So many hits wait in the background, and no more may: each one that is posted takes the place of
/// the oldest. All of them have been saved.
void fillBackground(std::int64_t count) {
  fillQueue(count);
  manager()->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(
      200000, static_cast<std::int32_t>(count));
  manager()->enableRunningInBackground();
  post(static_cast<int>(count));
}

/// A hit more and a hit less.
void change(benchmark::State& state) {
  fillBackground(state.range(0));
  auto id = static_cast<int>(state.range(0));
  for (auto _ : state) post(++id);
}

/// Writes what change() writes.
void changePlainly(benchmark::State& state) {
  fillBackground(state.range(0));
  writePlainly(state, savedFile(), 1);
}

/// The baseline's file.
class Database {
 public:
  /// Whether changes are flushed to the disk, as a save is; the removal of a file is not.
  inline static bool isDurable = true;

  Database() {
    check(sqlite3_open((offlineHitsPath() + ".sqlite").c_str(), &database_));
    run(isDurable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
    run("CREATE TABLE IF NOT EXISTS hits (id INTEGER PRIMARY KEY, type TEXT, url TEXT, body TEXT)");
  }
  ~Database() { sqlite3_close(database_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void run(const char* statement) {
    check(sqlite3_exec(database_, statement, nullptr, nullptr, nullptr));
  }
  void insertHits() {
    run("BEGIN");
    sqlite3_stmt* statement = prepared("INSERT INTO hits VALUES (?, ?, ?, ?)");
    for (int id = 0; id < kHits; ++id) {
      const Hit row = hit(id);
      sqlite3_bind_int(statement, 1, row.id);
      bind(statement, 2, row.type);
      bind(statement, 3, row.url);
      bind(statement, 4, row.body);
      sqlite3_step(statement);
      check(sqlite3_reset(statement));
    }
    sqlite3_finalize(statement);
    run("COMMIT");
  }
  /// The data of the requests, as the manager restores them.
  std::vector<Dictionary> readHits() {
    std::vector<Dictionary> read;
    sqlite3_stmt* statement = prepared("SELECT id, type, url, body FROM hits");
    while (sqlite3_step(statement) == SQLITE_ROW) {
      read.push_back({{kQVUserInfo_RequestID, sqlite3_column_int(statement, 0)},
                      {kQVUserInfo_RequestType, text(statement, 1)},
                      {kQVUserInfo_URLKey, text(statement, 2)},
                      {kQVUserInfo_POSTData, text(statement, 3)}});
    }
    sqlite3_finalize(statement);
    return read;
  }

 private:
  static void check(int result) {
    if (result == SQLITE_OK) return;
    std::fprintf(stderr, "SQLite: %s\n", sqlite3_errstr(result));
    std::exit(1);
  }
  sqlite3_stmt* prepared(const char* text) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database_, text, -1, &statement, nullptr));
    return statement;
  }
  static void bind(sqlite3_stmt* statement, int place, std::string_view text) {
    check(sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC));
  }
  static String text(sqlite3_stmt* statement, int column) {
    const void* bytes = sqlite3_column_text(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
  }

  sqlite3* database_ = nullptr;
};

void saveInSQLite(benchmark::State& state) {
  Database database;
  while (state.KeepRunningBatch(kHits)) {
    state.PauseTiming();
    database.run("DELETE FROM hits");
    state.ResumeTiming();
    database.insertHits();
  }
}

/// From the file to the queue, file removed. Its times are those of one hit.
void restore(benchmark::State& state) {
  const Data bytes = savedHits(state.range(0));
  while (state.KeepRunningBatch(state.range(0))) {
    state.PauseTiming();
    FileManager::writeAtomically(bytes, offlineHitsPath());
    emptyQueue();
    state.ResumeTiming();
    manager()->restoreStockedHit();
  }
  if (manager()->operationQueue()->operationCount() != static_cast<std::size_t>(state.range(0))) {
    fail("Hits were not restored.");
  }
  state.counters["peak"] = peakKilobytes();
}

/// The least that restore() must do: the file is read, and the texts of each hit are copied out of
/// it, each into memory of its own. Its times are those of one hit, too.
void readPlainly(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  savedHits(state.range(0));
  emptyQueue();
  while (state.KeepRunningBatch(state.range(0))) {
    const Data bytes = savedFile();
    std::deque<std::pair<std::string, std::string>> hits;
    for (std::size_t i = 0; i < count; ++i) {
      const auto part = bytes.view().substr(i * (bytes.view().size() / count));
      hits.emplace_back(part.substr(0, kURLSize), part.substr(kURLSize, kBodySize));
    }
    benchmark::DoNotOptimize(hits);
  }
}

/// From the rows to the queue, rows removed. Opens the file anew, as a process does that starts.
void restoreFromSQLite(benchmark::State& state) {
  manager()->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(200000, kNoLimit);
  while (state.KeepRunningBatch(kHits)) {
    state.PauseTiming();
    {
      Database database;
      database.run("DELETE FROM hits");
      database.insertHits();
    }
    emptyQueue();
    Database::isDurable = false;
    state.ResumeTiming();
    Database database;
    for (const Dictionary& hit : database.readHits()) manager()->queueRequestWithData(hit);
    database.run("DELETE FROM hits");
    Database::isDurable = true;
  }
  if (manager()->operationQueue()->operationCount() != kHits) fail("Rows were not restored.");
}

void timed(benchmark::internal::Benchmark* benchmark) {
  benchmark->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(save)->Apply(timed)->Arg(2000)->Arg(20'000)->Arg(1'000'000);
BENCHMARK(savePlainly)->Apply(timed)->Arg(2000)->Arg(20'000)->Arg(1'000'000);
BENCHMARK(saveInSQLite)->Apply(timed);
BENCHMARK(change)->Apply(timed)->Arg(2000)->Arg(20'000);
BENCHMARK(changePlainly)->Apply(timed)->Arg(2000)->Arg(20'000);
BENCHMARK(restore)->Apply(timed)->Arg(2000)->Arg(1'000'000);
BENCHMARK(readPlainly)->Apply(timed)->Arg(2000)->Arg(1'000'000);
BENCHMARK(restoreFromSQLite)->Apply(timed);

}  // namespace

int main(int count, char** arguments) {
  const KeepAliveServer server;
  url = server.url();
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  QVPlatform::NetworkReachability::setSource(std::make_shared<QVTest::ScriptedReachability>());
  const QVTest::TemporaryDirectory container;
  QVPlatform::Application::setContainerDirectory(container.path().string());
  QVDebug::setDebugLevel(6);
  QVCoreVariables::sharedInstance();  // which the thread of a queue would have made by this one
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
