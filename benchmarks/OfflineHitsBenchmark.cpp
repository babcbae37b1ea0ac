// 2,000 waiting hits saved and restored by the network manager, beside a plain write of as many
// bytes and beside the same rows in an SQLite file; and what a hit costs when every change of the
// queue saves it whole. All files lie in the system's directory for temporary ones: TMPDIR chooses
// the file system that is measured.
//
//   build/release/benchmarks/OfflineHitsBenchmark --benchmark_enable_random_interleaving=true
//       --benchmark_repetitions=9 --benchmark_report_aggregates_only=true

#include "support/Answers.h"
#include "support/KeepAliveServer.h"

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Dispatch/OperationQueue.h>
#include <QVPlatform/Files/FileManager.h>
#include <tests/support/ScriptedReachability.h>
#include <tests/support/TemporaryDirectory.h>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using QVBenchmark::KeepAliveServer;
using QVPlatform::Data;
using QVPlatform::Dictionary;
using QVPlatform::FileManager;
using QVPlatform::OperationQueue;
using QVPlatform::String;

constexpr int kHits = 2000;
constexpr std::size_t kURLSize = 120;
constexpr std::size_t kBodySize = 300;
constexpr std::size_t kMaximumFileSize = 16U << 20;

struct Hit {
  int id = 0;
  std::string type;
  std::string url;
  std::string body;
};

std::string filled(std::string text, std::size_t size) {
  while (text.size() < size) text.push_back(static_cast<char>('a' + text.size() % 26));
  return text;
}

std::vector<Hit> makeHits(const std::string& url) {
  std::vector<Hit> hits;
  for (int id = 0; id < kHits; ++id) {
    const std::string number = "&n=" + std::to_string(id) + "&x=";
    hits.push_back({id, std::string(kQVNotification_HTTPResponse.view()),
                    filled(url + number, kURLSize), filled("s=1" + number, kBodySize)});
  }
  return hits;
}

std::vector<Hit> hits;

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

/// Gives the manager a new suspended queue with all the hits.
void fillQueue() {
  emptyQueue();
  for (const Hit& hit : hits) {
    QVPlatform::NotificationCenter::defaultCenter()->postNotification(QVPlatform::Notification(
        kQVNotification_HTTPRequest, nullptr,
        {{kQVUserInfo_URLKey, hit.url}, {kQVUserInfo_POSTData, hit.body}}));
  }
}

/// What the manager saves of a full queue.
Data savedHits() {
  fillQueue();
  manager()->saveAllHits();
  return FileManager::contentsAtPath(offlineHitsPath(), kMaximumFileSize);
}

void save(benchmark::State& state) {
  fillQueue();
  for (auto _ : state) manager()->saveAllHits();
}

bool writeFlushRename(std::string_view bytes, const std::string& path) {
  const std::string aside = path + ".new";
  const int file = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool isWritten = write(file, bytes.data(), bytes.size()) == ssize_t(bytes.size());
  const bool isFlushed = fsync(file) == 0;
  close(file);
  return isWritten && isFlushed && std::rename(aside.c_str(), path.c_str()) == 0;
}

void savePlainly(benchmark::State& state) {
  const Data bytes = savedHits();
  const std::string path = offlineHitsPath() + ".plain";
  for (auto _ : state) {
    if (!writeFlushRename(bytes.view(), path)) state.SkipWithError("not written");
  }
  state.counters["bytes"] = static_cast<double>(bytes.view().size());
}

/// The baseline's file.
class Database {
 public:
  Database() {
    check(sqlite3_open((offlineHitsPath() + ".sqlite").c_str(), &database_));
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
    for (const Hit& hit : hits) {
      sqlite3_bind_int(statement, 1, hit.id);
      bind(statement, 2, hit.type);
      bind(statement, 3, hit.url);
      bind(statement, 4, hit.body);
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
  for (auto _ : state) {
    state.PauseTiming();
    database.run("DELETE FROM hits");
    state.ResumeTiming();
    database.insertHits();
  }
}

void restore(benchmark::State& state) {
  const Data bytes = savedHits();
  for (auto _ : state) {
    state.PauseTiming();
    FileManager::writeAtomically(bytes, offlineHitsPath());
    emptyQueue();
    state.ResumeTiming();
    manager()->restoreStockedHit();
  }
  if (manager()->operationQueue()->operationCount() != kHits) state.SkipWithError("not restored");
}

/// The part of restore() that reads the file: from its bytes to the requests' data.
void readArchive(benchmark::State& state) {
  savedHits();
  for (auto _ : state) {
    QVPlatform::KeyedUnarchiver unarchiver(
        FileManager::contentsAtPath(offlineHitsPath(), kMaximumFileSize));
    const auto read = unarchiver.decodeObjectForKey(kQVFileOfflineHits).array();
    if (read.count() != hits.size()) state.SkipWithError("not read");
  }
}

/// Opens the file anew, as a process does that starts.
void readFromSQLite(benchmark::State& state) {
  {
    Database database;
    database.run("DELETE FROM hits");
    database.insertHits();
  }
  for (auto _ : state) {
    if (Database().readHits().size() != hits.size()) state.SkipWithError("not read");
  }
}

/// What restore() does, with the rows.
void restoreFromSQLite(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      Database database;
      database.run("DELETE FROM hits");
      database.insertHits();
    }
    emptyQueue();
    state.ResumeTiming();
    Database database;
    for (const Dictionary& hit : database.readHits()) manager()->queueRequestWithData(hit);
    database.run("DELETE FROM hits");
  }
}

/// Its times are those of one hit.
void drain(benchmark::State& state) {
  QVBenchmark::Answers answers;
  while (state.KeepRunningBatch(kHits)) {
    state.PauseTiming();
    fillQueue();
    if (state.range(0) != 0) manager()->enableRunningInBackground();
    answers.expect(kHits);
    state.ResumeTiming();
    manager()->operationQueue()->setSuspended(false);
    answers.wait();
  }
}

void timed(benchmark::internal::Benchmark* benchmark) {
  benchmark->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(save)->Apply(timed);
BENCHMARK(savePlainly)->Apply(timed);
BENCHMARK(saveInSQLite)->Apply(timed);
BENCHMARK(restore)->Apply(timed);
BENCHMARK(readArchive)->Apply(timed);
BENCHMARK(readFromSQLite)->Apply(timed);
BENCHMARK(restoreFromSQLite)->Apply(timed);
BENCHMARK(drain)->ArgName("background")->Arg(0)->Arg(1)->Apply(timed)->Iterations(kHits);

}  // namespace

int main(int count, char** arguments) {
  const KeepAliveServer server;
  hits = makeHits(server.url());
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
