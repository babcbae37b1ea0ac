// 2,000 hits through the core beside the same 2,000 requests by a bare loop over one curl handle,
// to the same server, in interleaved rounds; and what posting a hit costs the thread that posts.
//
//   build/release/benchmarks/TransportBenchmark --benchmark_enable_random_interleaving=true
//       --benchmark_repetitions=9 --benchmark_report_aggregates_only=true

#include "support/Answers.h"
#include "support/KeepAliveServer.h"

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <tests/support/ScriptedReachability.h>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <sched.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using QVBenchmark::Answers;
using QVBenchmark::KeepAliveServer;
using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;

constexpr int kHits = 2000;
const KeepAliveServer* server = nullptr;

void postHits(int count) {
  const Dictionary hit{{"url", server->url()}};
  for (int i = 0; i < count; ++i) {
    NotificationCenter::defaultCenter()->postNotification(
        Notification(kQVNotification_HTTPRequest, nullptr, hit));
  }
}

void throughCore(benchmark::State& state) {
  Answers answers;
  server->newConnections();
  for (auto _ : state) {
    answers.expect(kHits);
    postHits(kHits);
    answers.wait();
  }
  state.counters["connections"] = server->newConnections();
}

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

void bareLoop(benchmark::State& state) {
  CURL* handle = curl_easy_init();
  curl_easy_setopt(handle, CURLOPT_URL, server->url().c_str());
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, discard);
  for (auto _ : state) {
    for (int i = 0; i < kHits; ++i) {
      if (curl_easy_perform(handle) != CURLE_OK) state.SkipWithError("a transfer failed");
    }
  }
  curl_easy_cleanup(handle);
}

/// Puts all threads of a process on these processors.
void place(pid_t process, const cpu_set_t& processors) {
  const auto tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    sched_setaffinity(std::stoi(task.path().filename()), sizeof processors, &processors);
  }
}

void placeOnOneCore(const benchmark::State&) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(0, &one);
  place(getpid(), one);
  place(server->process(), one);
}

void placeFreely(const benchmark::State&) {
  cpu_set_t all;
  CPU_ZERO(&all);
  for (int i = 0; i < CPU_SETSIZE; ++i) CPU_SET(i, &all);
  place(getpid(), all);
  place(server->process(), all);
}

/// Time per post, of posts alone; what they set off is waited for outside the time.
void postWhileRunning(benchmark::State& state) {
  constexpr int kBatch = 1000;
  Answers answers;
  for (auto _ : state) {
    answers.expect(kBatch);
    const auto begin = std::chrono::steady_clock::now();
    postHits(kBatch);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(time.count() / kBatch);
    answers.wait();
  }
}

/// Offline, with as many hits queued as the argument says, which is also the queue's limit: each
/// post cancels one of them.
void postWhileSuspended(benchmark::State& state) {
  const auto manager = QVNetworkManager::sharedInstance();
  const auto queued = static_cast<int>(state.range(0));
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(200000, queued);
  manager->operationQueue()->setSuspended(true);
  postHits(queued);
  for (auto _ : state) postHits(1);
  manager->operationQueue()->cancelAllOperations();
  manager->operationQueue()->setSuspended(false);
  while (manager->operationQueue()->operationCount() > 0) std::this_thread::yield();
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(200000, 2000);
}

BENCHMARK(bareLoop)
    ->Name("one core/bare")
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Setup(placeOnOneCore);
BENCHMARK(throughCore)
    ->Name("one core/core")
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Setup(placeOnOneCore);
BENCHMARK(bareLoop)->Name("free/bare")->MeasureProcessCPUTime()->UseRealTime()->Setup(placeFreely);
BENCHMARK(throughCore)
    ->Name("free/core")
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Setup(placeFreely);
// Its time is a small part of what it takes, so it does not choose its iterations by time.
BENCHMARK(postWhileRunning)->Setup(placeFreely)->UseManualTime()->Iterations(20);
BENCHMARK(postWhileSuspended)->Setup(placeFreely)->Arg(100)->Arg(2000)->Arg(100'000);

/// Prints the ratios of the medians after the table.
class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const bool isMedian = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (isMedian) medians_[run.run_name.function_name] = run;
    }
  }
  void Finalize() override {
    for (const std::string placement : {"one core", "free"}) {
      if (!medians_.contains(placement + "/core") || !medians_.contains(placement + "/bare"))
        continue;
      const Run& core = medians_[placement + "/core"];
      const Run& bare = medians_[placement + "/bare"];
      std::printf("%s: core / bare loop, medians: wall %.2f, CPU %.2f\n", placement.c_str(),
                  core.real_accumulated_time / bare.real_accumulated_time,
                  core.cpu_accumulated_time / bare.cpu_accumulated_time);
    }
  }

 private:
  std::map<std::string, Run> medians_;
};

}  // namespace

int main(int count, char** arguments) {
  const KeepAliveServer theServer;
  server = &theServer;
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  QVPlatform::NetworkReachability::setSource(std::make_shared<QVTest::ScriptedReachability>());
  const std::filesystem::path container =
      std::filesystem::temp_directory_path() / ("qvcore-benchmark-" + std::to_string(getpid()));
  QVPlatform::Application::setContainerDirectory(container.string());
  QVDebug::setDebugLevel(6);
  QVNetworkManager::sharedInstance();
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::filesystem::remove_all(container);
  return 0;
}
