// What a post costs: with 1 and 10 observers of its name, with no and 10,000 other names
// registered, and from two threads at once.
//
//   build/release/benchmarks/NotificationBenchmark

#include <QVPlatform/Dispatch/NotificationCenter.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <string>

namespace {

using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;

/// A center with the given numbers of observers of "name" and of other names.
std::unique_ptr<NotificationCenter> makeCenter(std::int64_t observers, std::int64_t otherNames) {
  static std::atomic<std::int64_t> delivered;
  auto center = std::make_unique<NotificationCenter>();
  const auto count = [](const Notification&) { delivered.fetch_add(1, std::memory_order_relaxed); };
  for (std::int64_t i = 0; i < observers; ++i) center->addObserver(center.get(), count, "name");
  for (std::int64_t i = 0; i < otherNames; ++i) {
    center->addObserver(center.get(), count, "other name " + std::to_string(i));
  }
  return center;
}

void post(benchmark::State& state) {
  const auto center = makeCenter(state.range(0), state.range(1));
  const Notification notification("name");
  for (auto _ : state) center->postNotification(notification);
}
BENCHMARK(post)->ArgNames({"observers", "other_names"})->ArgsProduct({{1, 10}, {0, 10'000}});

void postFromTwoThreads(benchmark::State& state) {
  static std::unique_ptr<NotificationCenter> center;
  if (state.thread_index() == 0) center = makeCenter(state.range(0), 0);
  const Notification notification("name");
  for (auto _ : state) center->postNotification(notification);
  if (state.thread_index() == 0) center.reset();
}
BENCHMARK(postFromTwoThreads)->ArgName("observers")->Arg(1)->Arg(10)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
