// What a post costs beside the least that could do its work: a look-up in a map, and the call of
// what it holds. All names are registered among 10,000 others; one thread posts, or two at once.
//
// The rows take turns in many short rounds, and the time of a post in each of them is printed as
// Google Benchmark prints repetitions. The rows with two threads need two free processors.

#include <QVCore/QVEventListener.h>
#include <QVCore/QVEventSender.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using QVPlatform::Notification;
using QVPlatform::NotificationCenter;
using QVPlatform::String;

constexpr int kNames = 10'000;
constexpr int kPosts = 5'000;
constexpr int kRounds = 400;

/// On all sides a delivery counts here, so that nothing but the bus is shared by the threads.
thread_local std::uint64_t delivered = 0;

void count(const Notification&) { ++delivered; }

std::string nameOf(int i) { return "QVNotification: benchmark " + std::to_string(i); }

class alignas(64) Owner : public IQVEventListenerDelegate, public QVPlatform::Object {
 public:
  void changeNotificationCenter(const std::shared_ptr<NotificationCenter>&) override {}
  void onNotificationReceived(const Notification& notification) override { count(notification); }

  std::shared_ptr<QVEventListener> listener = std::make_shared<QVEventListener>()->init();
  std::shared_ptr<QVEventSender> sender = std::make_shared<QVEventSender>()->init();
};

/// What the rows post to.
struct Sides {
  Sides() {
    for (int i = 0; i < kNames; ++i) {
      map.emplace(nameOf(i), count);
      center.addObserver(this, count, nameOf(i));
      if (i >= 2) NotificationCenter::defaultCenter()->addObserver(this, count, nameOf(i));
    }
    for (std::size_t i = 0; i < owners.size(); ++i) {
      owners[i]->listener->setParent(owners[i].get());
      owners[i]->listener->listen(nameOf(static_cast<int>(i)));
    }
  }

  std::unordered_map<std::string, std::function<void(const Notification&)>> map;
  NotificationCenter center;
  std::array<std::shared_ptr<Owner>, 2> owners{std::make_shared<Owner>(),
                                               std::make_shared<Owner>()};
};

/// Posts `kPosts` times the name with the given number.
using Batch = void (*)(Sides& sides, int name);

void callThroughMap(Sides& sides, int name) {
  const std::string text = nameOf(name);
  const Notification notification{String(text)};
  for (int i = 0; i < kPosts; ++i) {
    const auto found = sides.map.find(text);
    if (found != sides.map.end()) found->second(notification);
  }
}

void postDirectly(Sides& sides, int name) {
  const Notification notification{String(nameOf(name))};
  for (int i = 0; i < kPosts; ++i) sides.center.postNotification(notification);
}

void sendToListener(Sides& sides, int name) {
  const auto& owner = sides.owners[static_cast<std::size_t>(name)];
  const Notification notification{String(nameOf(name)), owner};
  for (int i = 0; i < kPosts; ++i) owner->sender->send(notification);
}

using Clock = std::chrono::steady_clock;

/// When a batch ran.
struct Span {
  static Span of(Batch batch, Sides& sides, int name) {
    Span span;
    batch(sides, name);
    span.end = Clock::now();
    return span;
  }
  double nanosecondsAPost() const {
    return std::chrono::duration<double, std::nano>(end - begin).count() / kPosts;
  }

  Clock::time_point begin = Clock::now();
  Clock::time_point end{};
};

/// A thread that runs a batch at the same time as the main one. Both spin to their start, since
/// waking a thread takes longer than a batch.
class SecondThread {
 public:
  explicit SecondThread(Sides& sides) : thread_([this, &sides] { run(sides); }) {}
  ~SecondThread() {
    call(nullptr, 0);
    thread_.join();
  }
  SecondThread(const SecondThread&) = delete;
  SecondThread& operator=(const SecondThread&) = delete;

  /// Returns when the thread waits for nothing but start().
  void prepare(Batch batch, int name) {
    call(batch, name);
    while (state_ != kIsReady) {
    }
  }
  void start() { state_ = kIsStarted; }
  Span finish() const {
    while (state_ != kIsDone) {
    }
    return span_;
  }

 private:
  enum State { kIsCalled, kIsReady, kIsStarted, kIsDone };

  void call(Batch batch, int name) {
    batch_ = batch;
    name_ = name;
    state_ = kIsCalled;
    ++calls_;
    calls_.notify_all();
  }
  void run(Sides& sides) {
    for (unsigned call = 0;; ++call) {
      calls_.wait(call);
      if (!batch_) return;
      state_ = kIsReady;
      while (state_ != kIsStarted) {
      }
      span_ = Span::of(batch_, sides, name_);
      state_ = kIsDone;
    }
  }

  Batch batch_ = nullptr;
  int name_ = 0;
  Span span_;
  std::atomic<unsigned> calls_{0};
  std::atomic<State> state_{kIsDone};
  std::thread thread_;
};

struct Row {
  const char* name;
  Batch batch;
  int secondName;  // of the second thread; -1 without one
  std::vector<double> times{};

  void measure(Sides& sides, SecondThread& second) {
    if (secondName < 0) {
      times.push_back(Span::of(batch, sides, 0).nanosecondsAPost());
      return;
    }
    second.prepare(batch, secondName);
    second.start();
    const Span own = Span::of(batch, sides, 0);
    addIfAtOnce(own, second.finish());
  }
  /// Batches that ran mostly one after the other, for want of a free processor, tell nothing.
  void addIfAtOnce(const Span& one, const Span& other) {
    const auto shared = std::min(one.end, other.end) - std::max(one.begin, other.begin);
    const auto longer = std::max(one.end - one.begin, other.end - other.begin);
    if (shared < longer * 9 / 10) return;
    times.push_back(std::max(one.nanosecondsAPost(), other.nanosecondsAPost()));
  }
};

}  // namespace

int main() {
  std::vector<Row> rows{
      {"map", callThroughMap, -1},
      {"map/two_threads/two_names", callThroughMap, 1},
      {"center", postDirectly, -1},
      {"center/two_threads/two_names", postDirectly, 1},
      {"center/two_threads/one_name", postDirectly, 0},
      {"sender", sendToListener, -1},
      {"sender/two_threads/two_names", sendToListener, 1},
      {"sender/two_threads/one_name", sendToListener, 0},
  };
  Sides sides;
  SecondThread second(sides);
  for (int round = 0; round < kRounds; ++round) {
    for (Row& row : rows) row.measure(sides, second);
  }
  const char* separator = "";
  std::printf("{\"benchmarks\": [");
  for (const Row& row : rows) {
    for (const double time : row.times) {
      std::printf(
          "%s\n{\"run_name\": \"%s\", \"run_type\": \"iteration\", \"real_time\": %f, "
          "\"time_unit\": \"ns\"}",
          std::exchange(separator, ","), row.name, time);
    }
  }
  std::printf("]}\n");
  return 0;
}
