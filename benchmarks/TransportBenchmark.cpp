// 2,000 hits through the core beside the same 2,000 requests by a loop over one curl handle and by
// one over a socket, to the same server: each with another URL of 120 characters, by GET and by
// POST with 700 bytes; how long a single hit takes to the server; and what posting a hit costs the
// thread that posts.

#include "support/Answers.h"
#include "support/Basics.h"
#include "support/KeepAliveServer.h"

#include <QVCore/QVCore.h>
#include <QVPlatform/Application.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>
#include <QVPlatform/Networking/URLConnection.h>
#include <tests/support/ScriptedReachability.h>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <sched.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

namespace {

using QVBenchmark::Answers;
using QVBenchmark::fail;
using QVBenchmark::filled;
using QVBenchmark::KeepAliveServer;
using QVPlatform::Dictionary;
using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::URLConnection;

constexpr std::size_t kHits = 2000;
constexpr std::size_t kURLSize = 120;
constexpr std::size_t kBodySize = 700;
const KeepAliveServer* server = nullptr;
std::vector<std::string> urls;
std::vector<std::string> bodies;
/// The fields that the core sends and a bare handle does not, so that all send the same bytes.
std::vector<std::string> fields;

void makeRequests() {
  const std::string_view userAgent = URLConnection::userAgent().view();
  const std::string_view language = URLConnection::acceptLanguage().view();
  fields = {"User-Agent: " + std::string(userAgent), "Accept-Language: " + std::string(language),
            "Accept-Encoding: gzip"};
  for (std::size_t i = 0; i < kHits; ++i) {
    const std::string number = "&n=" + std::to_string(i) + "&x=";
    urls.push_back(filled(server->url() + number, kURLSize));
    bodies.push_back(filled("s=1" + number, kBodySize));
  }
}

enum class Method { kGet, kPost };

void postHit(std::size_t i, Method method) {
  const Dictionary hit =
      method == Method::kGet
          ? Dictionary({{kQVUserInfo_URLKey, urls[i]}})
          : Dictionary({{kQVUserInfo_URLKey, urls[i]}, {kQVUserInfo_POSTData, bodies[i]}});
  NotificationCenter::defaultCenter()->postNotification(
      Notification(kQVNotification_HTTPRequest, nullptr, hit));
}

void postHits(std::size_t count, Method method = Method::kGet) {
  for (std::size_t i = 0; i < count; ++i) postHit(i % kHits, method);
}

void throughCore(benchmark::State& state, Method method) {
  Answers answers;
  server->newConnections();
  for (auto _ : state) {
    answers.expect(kHits);
    postHits(kHits, method);
    answers.wait();
  }
  state.counters["connections"] = server->newConnections();
  state.counters["bytes"] = server->lastSize();
}

/// A curl handle as an application has it that sends from a thread.
class BareCurl {
 public:
  BareCurl() {
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    for (const std::string& field : fields) list_ = curl_slist_append(list_, field.c_str());
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, list_);
  }
  ~BareCurl() {
    curl_easy_cleanup(handle_);
    curl_slist_free_all(list_);
  }
  BareCurl(const BareCurl&) = delete;
  BareCurl& operator=(const BareCurl&) = delete;

  void send(std::size_t i, Method method) {
    curl_easy_setopt(handle_, CURLOPT_URL, urls[i].c_str());
    if (method == Method::kPost) {
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE, static_cast<long>(bodies[i].size()));
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, bodies[i].data());
    }
    if (curl_easy_perform(handle_) != CURLE_OK) fail("A bare transfer failed.");
  }

 private:
  static std::size_t discard(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
  }
  CURL* handle_ = curl_easy_init();
  curl_slist* list_ = nullptr;
};

void throughCurl(benchmark::State& state, Method method) {
  BareCurl curl;
  for (auto _ : state) {
    for (std::size_t i = 0; i < kHits; ++i) curl.send(i, method);
  }
  state.counters["bytes"] = server->lastSize();
}

std::string requestText(std::size_t i, Method method, const std::string& header) {
  const std::string target = urls[i].substr(urls[i].find('/', 8));
  if (method == Method::kGet) return "GET " + target + header + "\r\n";
  return "POST " + target + header + "Content-Length: " + std::to_string(bodies[i].size()) +
         "\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n" + bodies[i];
}

/// What the kernel and the server take: requests that are made and answers that are passed over.
void throughSocket(benchmark::State& state, Method method) {
  const int file = server->connectedSocket();
  std::string header =
      " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server->port()) + "\r\nAccept: */*\r\n";
  for (const std::string& field : fields) header += field + "\r\n";
  char answer[4096];
  for (auto _ : state) {
    for (std::size_t i = 0; i < kHits; ++i) {
      const std::string request = requestText(i, method, header);
      const auto size = static_cast<ssize_t>(request.size());
      if (send(file, request.data(), request.size(), MSG_NOSIGNAL) != size ||
          recv(file, answer, sizeof answer, 0) <= 0) {
        fail("An exchange over the socket failed.");
      }
    }
  }
  close(file);
  state.counters["bytes"] = server->lastSize();
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

/// Time from handing over one hit, when nothing else is under way, to its arrival.
template <class HandOver>
void measureLatency(benchmark::State& state, const HandOver& handOver) {
  std::size_t i = 0;
  for (auto _ : state) {
    const auto begin = KeepAliveServer::Clock::now();
    handOver(i++ % kHits);
    const std::chrono::duration<double> time = server->lastArrival() - begin;
    state.SetIterationTime(time.count());
  }
}

void latencyThroughCore(benchmark::State& state) {
  Answers answers;
  measureLatency(state, [&](std::size_t i) {
    answers.expect(1);
    postHit(i, Method::kGet);
    answers.wait();
  });
}

/// A worker thread with a curl handle, which sleeps until it gets a request.
void latencyThroughCurl(benchmark::State& state) {
  std::binary_semaphore isGiven{0}, isDone{0};
  std::size_t next = 0;
  std::thread worker([&] {
    BareCurl curl;
    for (isGiven.acquire(); next != kHits; isGiven.acquire()) {
      curl.send(next, Method::kGet);
      isDone.release();
    }
  });
  measureLatency(state, [&](std::size_t i) {
    next = i;
    isGiven.release();
    isDone.acquire();
  });
  next = kHits;
  isGiven.release();
  worker.join();
}

/// Time of the posts of a burst alone; what they set off is waited for outside the time.
void postWhileRunning(benchmark::State& state) {
  Answers answers;
  for (auto _ : state) {
    answers.expect(kHits);
    const auto begin = std::chrono::steady_clock::now();
    postHits(kHits);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(time.count());
    answers.wait();
  }
}

/// Offline, with as many hits queued as the argument says, which is also the queue's limit: each
/// post cancels one of them.
void postWhileSuspended(benchmark::State& state) {
  const auto manager = QVNetworkManager::sharedInstance();
  const auto queued = state.range(0);
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(
      200000, static_cast<int>(queued));
  manager->operationQueue()->setSuspended(true);
  postHits(static_cast<std::size_t>(queued));
  for (auto _ : state) postHits(1);
  manager->operationQueue()->cancelAllOperations();
  manager->operationQueue()->setSuspended(false);
  while (manager->operationQueue()->operationCount() > 0) std::this_thread::yield();
  manager->changeOfflineConfigurationsForMaxLifetimeAndMaxOperationsInQueue(200000, 2000);
}

void registerTransfers() {
  using Run = void (*)(benchmark::State&, Method);
  const std::pair<const char*, Run> ways[] = {
      {"core", throughCore}, {"curl", throughCurl}, {"socket", throughSocket}};
  for (const bool isPinned : {true, false}) {
    for (const Method method : {Method::kGet, Method::kPost}) {
      for (const auto& [name, run] : ways) {
        const std::string title = std::string(isPinned ? "one_core/" : "free/") +
                                  (method == Method::kGet ? "GET/" : "POST/") + name;
        benchmark::RegisterBenchmark(title.c_str(), run, method)
            ->MeasureProcessCPUTime()
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond)
            ->Setup(isPinned ? placeOnOneCore : placeFreely);
      }
    }
  }
}

BENCHMARK(latencyThroughCore)->Name("latency/core")->Setup(placeFreely)->UseManualTime();
BENCHMARK(latencyThroughCurl)->Name("latency/curl")->Setup(placeFreely)->UseManualTime();
// Its time is a small part of what it takes, so it does not choose its iterations by time.
BENCHMARK(postWhileRunning)->Setup(placeFreely)->UseManualTime()->Iterations(1);
BENCHMARK(postWhileSuspended)
    ->Setup(placeFreely)
    ->Arg(10)
    ->Arg(100)
    ->Arg(2000)
    ->Arg(100'000)
    ->Arg(1'000'000);

}  // namespace

int main(int count, char** arguments) {
  const KeepAliveServer theServer;
  server = &theServer;
  makeRequests();
  registerTransfers();
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  QVPlatform::NetworkReachability::setSource(std::make_shared<QVTest::ScriptedReachability>());
  const std::filesystem::path container =
      std::filesystem::temp_directory_path() / ("qvcore-benchmark-" + std::to_string(getpid()));
  QVPlatform::Application::setContainerDirectory(container.string());
  QVDebug::setDebugLevel(6);
  QVNetworkManager::sharedInstance();
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(container);
  return 0;
}
