#include "tests/support/Test.h"

namespace {

/// Whether no signal can reach the calling thread, but those that cannot be blocked.
bool blocksAllSignals() {
  sigset_t blocked;
  if (pthread_sigmask(SIG_SETMASK, nullptr, &blocked) != 0) return false;
  const auto isBlocked = [&](int number) { return sigismember(&blocked, number) == 1; };
  for (int number = 1; number < 32; ++number) {
    if (number != SIGKILL && number != SIGSTOP && !isBlocked(number)) return false;
  }
  return isBlocked(SIGRTMIN) && isBlocked(SIGRTMAX);
}

/// Of those that have a name of their own, unlike the one that a sanitizer starts for itself.
std::size_t threadCount() {
  const auto nameIn = [](const std::filesystem::path& directory) {
    std::string name;
    std::ifstream(directory / "comm") >> name;
    return name;
  };
  const std::set<std::string> unnamed{"", nameIn("/proc/self")};
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<std::size_t>(
      std::count_if(begin(threads), end(threads),
                    [&](const auto& thread) { return !unnamed.contains(nameIn(thread.path())); }));
}

class BlockOperation : public Operation {
 public:
  explicit BlockOperation(std::function<void()> block) : block_(std::move(block)) {}
  void main() override { block_(); }

 private:
  std::function<void()> block_;
};

std::shared_ptr<Operation> operation(std::function<void()> block = [] {}) {
  return std::make_shared<BlockOperation>(std::move(block));
}

/// Adds an operation behind all others and waits until it runs.
void drain(OperationQueue& queue) {
  std::promise<void> reached;
  queue.addOperation(operation([&reached] { reached.set_value(); }));
  reached.get_future().wait();
}

const auto kAny = [](const Operation&) { return true; };

TEST(OperationQueue, RunsOneAfterTheOtherInOrderAlsoAfterOneThatThrows) {
  OperationQueue queue;
  std::vector<int> order;
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  queue.addOperation(operation([] { throw 1; }));
  for (int i = 0; i < 100; ++i) {
    queue.addOperation(operation([&, i] {
      most = std::max(most.load(), ++running);
      order.push_back(i);
      --running;
    }));
  }
  drain(queue);
  EXPECT_EQ(order.size(), 100U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(most, 1);
  EXPECT_FALSE(queue.isSuspended());
}

TEST(OperationQueue, StartsNothingWhileSuspendedAndListsWhatRunsAndWhatWaits) {
  OperationQueue queue;
  std::promise<void> started;
  std::promise<void> mayEnd;
  std::atomic<int> runs = 0;
  const auto running = operation([&] {
    started.set_value();
    mayEnd.get_future().wait();
  });
  queue.addOperation(running);
  started.get_future().wait();
  queue.setSuspended(true);
  const auto first = operation([&runs] { ++runs; });
  const auto second = operation([&runs] { ++runs; });
  queue.addOperation(first);
  queue.addOperation(second);
  EXPECT_FALSE(queue.addOperation(nullptr));
  EXPECT_THAT(queue.operations(), ElementsAre(running, first, second));
  EXPECT_EQ(queue.firstOperationPassingTest(kAny), running);
  EXPECT_EQ(queue.operationAtIndex(0), running);
  EXPECT_EQ(queue.operationAtIndex(2), second);
  EXPECT_EQ(queue.operationAtIndex(3), nullptr);
  mayEnd.set_value();
  while (queue.operationCount() != 2) std::this_thread::yield();
  EXPECT_THAT(queue.operations(), ElementsAre(first, second));
  EXPECT_EQ(runs, 0);
  queue.setSuspended(false);
  drain(queue);
  EXPECT_EQ(runs, 2);
}

TEST(OperationQueue, KeepsCancelledOperationsInTheListAndDoesNotRunThem) {
  OperationQueue queue;
  std::atomic<int> runs = 0;
  queue.setSuspended(true);
  const auto held = operation([&runs] { runs += 10; });
  const auto kept = operation([&runs] { ++runs; });
  queue.addOperation(operation([&runs] { runs += 100; }));
  queue.addOperation(held);
  queue.operations().front()->cancel();
  held->cancel();
  queue.addOperation(kept);
  EXPECT_EQ(queue.operationCount(), 3U);
  EXPECT_EQ(queue.firstOperationPassingTest(kAny), kept);
  EXPECT_TRUE(queue.operations().front()->isCancelled());
  EXPECT_EQ(queue.operations()[1], held);
  queue.setSuspended(false);
  drain(queue);
  EXPECT_EQ(runs, 1);
}

// What a cancelled operation held is gone although it still counts; one of them stands for all.
TEST(OperationQueue, ReleasesCancelledOperationsAtItsHeadWhileItIsSuspended) {
  class Holder : public Operation {
   public:
    void releaseWork() override { work.reset(); }
    std::shared_ptr<int> work = std::make_shared<int>();
  };
  OperationQueue queue;
  queue.setSuspended(true);
  std::vector<std::weak_ptr<Operation>> all;
  std::vector<std::weak_ptr<int>> works;
  for (int i = 0; i < 1000; ++i) {
    auto added = std::make_shared<Holder>();
    all.push_back(added);
    works.push_back(added->work);
    queue.addOperation(std::move(added));
    queue.firstOperationPassingTest(kAny)->cancel();
  }
  auto last = std::make_shared<Holder>();
  const std::weak_ptr<int> lastWork = last->work;
  queue.addOperation(std::move(last));
  EXPECT_EQ(queue.operationCount(), 1001U);
  EXPECT_EQ(std::erase_if(all, [](const auto& each) { return each.expired(); }), 999U);
  EXPECT_THAT(works, Each(::testing::Property(&std::weak_ptr<int>::expired, true)));
  for (const auto& each : queue.operations()) EXPECT_TRUE(dynamic_cast<Holder*>(each.get()));
  EXPECT_EQ(queue.operationAtIndex(999), all.front().lock());
  // One of another kind keeps its place.
  queue.addOperation(operation());
  queue.cancelAllOperations();
  EXPECT_TRUE(lastWork.expired());
  EXPECT_TRUE(dynamic_cast<BlockOperation*>(queue.operations().back().get()));
}

class Watcher : public KeyValueObserver {
 public:
  void observeValueForKeyPathOfObjectChangeContext(const String& keyPath,
                                                   const std::shared_ptr<Object>& object,
                                                   const Value& change,
                                                   const void* context) override {
    const std::lock_guard lock(mutex);
    EXPECT_EQ(keyPath, String("operationCount"));
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(context, this);
    counts.push_back(change.intValue());
    threads.push_back(std::this_thread::get_id());
  }

  std::mutex mutex;
  std::vector<int> counts;
  std::vector<std::thread::id> threads;
};

TEST(OperationQueue, TellsTheCountOnTheThreadThatChangedIt) {
  const auto queue = std::make_shared<OperationQueue>();
  const auto watcher = std::make_shared<Watcher>();
  const auto counts = [&watcher] {
    const std::lock_guard lock(watcher->mutex);
    return watcher->counts;
  };
  queue->setSuspended(true);
  queue->addObserverForOperationCount(watcher, watcher.get());
  queue->addOperation(operation());
  queue->addOperation(operation());
  queue->setSuspended(false);
  while (counts().size() < 4) std::this_thread::yield();
  EXPECT_THAT(counts(), ElementsAre(1, 2, 1, 0));
  EXPECT_EQ(watcher->threads[1], std::this_thread::get_id());
  EXPECT_NE(watcher->threads[2], std::this_thread::get_id());

  // A run of cancelled ones is dropped as one change.
  queue->setSuspended(true);
  for (int i = 0; i < 3; ++i) queue->addOperation(operation());
  queue->cancelAllOperations();
  const std::size_t before = counts().size();
  queue->setSuspended(false);
  while (queue->operationCount() > 0) std::this_thread::yield();
  drain(*queue);
  EXPECT_TRUE(waitUntil([&] { return counts().size() >= before + 3; }));  // two are the last one's
  const auto told = counts();
  EXPECT_THAT(std::vector<int>(told.begin() + static_cast<std::ptrdiff_t>(before), told.end()),
              Each(testing::Lt(2)));
}

/// As pthread_exit() and a cancellation do.
TEST(Queues, GoOnWithTheRestWhenTheirThreadIsEnded) {
  if (!kThreadsMayEnd) GTEST_SKIP() << "no thread may end";
  OperationQueue queue;
  auto ending = operation([] { pthread_exit(nullptr); });
  const std::weak_ptr<Operation> ended = ending;
  queue.addOperation(std::move(ending));
  drain(queue);
  EXPECT_TRUE(waitUntil([&] { return ended.expired(); }));
  std::latch isRunning(1);
  queue.addOperation(operation([&] {
    isRunning.count_down();
    while (!queue.isStopped()) std::this_thread::yield();
  }));
  isRunning.wait();
  EXPECT_TRUE(queue.stopWithin(std::chrono::milliseconds::max()) && queue.operationCount() == 0);
  SerialQueue serial("test");
  EXPECT_EQ(serial.label(), String("test"));
  std::promise<void> isRun;
  serial.async([] { pthread_exit(nullptr); });
  serial.async([&] { isRun.set_value(); });
  isRun.get_future().wait();
}

TEST(OperationQueue, CanBeDestroyedWhileItRunsAnOperationAndThenItsThreadEnds) {
  const std::size_t before = threadCount();
  std::promise<void> started;
  std::promise<void> mayEnd;
  std::promise<bool> ended;
  auto queue = std::make_unique<OperationQueue>();
  auto waiting = operation();
  const std::weak_ptr<Operation> dropped = waiting;
  EXPECT_EQ(threadCount(), before);
  queue->addOperation(operation([&] {
    started.set_value();
    mayEnd.get_future().wait();
    ended.set_value(blocksAllSignals());
  }));
  started.get_future().wait();
  queue->cancelAllOperations();
  EXPECT_TRUE(queue->operationAtIndex(0)->isCancelled());
  queue->addOperation(std::move(waiting));
  queue.reset();
  EXPECT_TRUE(dropped.expired());
  mayEnd.set_value();
  EXPECT_TRUE(ended.get_future().get());
  // While it drops what waits, one by one, its thread starts none of that.
  queue = std::make_unique<OperationQueue>();
  std::latch isRunning(1), isDropping(1);
  std::atomic<bool> isLaterOneRun = false;
  std::shared_ptr<std::latch> atDrop(&isDropping, [&](std::latch* dropping) {
    dropping->count_down();
    EXPECT_TRUE(waitUntil([&] { return isLaterOneRun || threadCount() == before; }));
  });
  queue->addOperation(operation([&] {
    isRunning.count_down();
    isDropping.wait();
  }));
  queue->addOperation(operation([held = std::move(atDrop)] {}));
  queue->addOperation(operation([&] { isLaterOneRun = true; }));
  isRunning.wait();
  queue.reset();
  EXPECT_FALSE(isLaterOneRun);
  for (int i = 0; i < 20; ++i) {  // with nothing to do
    OperationQueue idle;
    drain(idle);
    while (idle.operationCount() > 0) std::this_thread::yield();
  }
  EXPECT_TRUE(waitUntil([&] { return threadCount() == before; }));
}

TEST(MainQueue, RunsBlocksOnTheMainThreadInOrderUntilStopped) {
  auto& queue = MainQueue::mainQueue();
  std::vector<int> order;
  const auto add = [&](int number) {
    EXPECT_TRUE(MainQueue::isMainThread());
    order.push_back(number);
  };
  queue.async([&] { add(1); });
  queue.stop();
  queue.run();  // which the stop before ends
  EXPECT_THAT(order, IsEmpty());
  std::thread other([&] {
    EXPECT_FALSE(MainQueue::isMainThread());
    queue.async([&] {
      add(2);
      throw 2;
    });
    EXPECT_TRUE(queue.sync([&] {
      add(3);
      throw std::runtime_error("3");
    }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    queue.async([&] {
      queue.stop();
      queue.async([&] { add(6); });
      queue.sync([&] { add(4); });  // at once on this thread
      add(5);
    });
  });
  queue.run();
  other.join();
  EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5));
  queue.drain();
  EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5, 6));
  std::thread([&] { queue.stop(); }).join();
  queue.run();
}

TEST(MainQueue, ShowsByItsDescriptorWhetherBlocksWait) {
  auto& queue = MainQueue::mainQueue();
  int runs = 0;
  queue.async([&] { ++runs; });
  pollfd waiting{queue.fileDescriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  queue.async([&] { queue.async([&] { ++runs; }); });
  queue.drain();  // not what these hand in
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  queue.drain();
  EXPECT_EQ(runs, 2);
  EXPECT_EQ(poll(&waiting, 1, 0), 0);
  queue.async([&] { queue.drain(); });
  queue.async([&] { ++runs; });
  queue.drain();
  EXPECT_EQ(runs, 3);
  queue.async([&] { ++runs; });
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  queue.drain();
  EXPECT_EQ(runs, 4);
}

TEST(SerialQueue, RunsBlocksInOrderOnOneThreadThatGoesWithTheQueue) {
  const std::size_t before = threadCount();
  std::vector<std::size_t> order;
  std::set<std::thread::id> threads;
  std::promise<void> reached;
  {
    SerialQueue queue("test");
    EXPECT_EQ(threadCount(), before);
    for (std::size_t i = 0; i < 100; ++i) {
      queue.async([&, i] {
        order.push_back(i);
        threads.insert(std::this_thread::get_id());
        EXPECT_TRUE(blocksAllSignals());
        if (i == 0) throw i;
      });
    }
    queue.async([&] { reached.set_value(); });
  }
  reached.get_future().wait();    // what waits when the queue is destroyed still runs
  for (int i = 0; i < 20; ++i) {  // with nothing to do
    std::promise<void> idle;
    SerialQueue queue("test");
    queue.async([&] { idle.set_value(); });
    idle.get_future().wait();
    for (int yields = 0; yields < 10; ++yields) std::this_thread::yield();
  }
  EXPECT_TRUE(waitUntil([&] { return threadCount() == before; }));
  EXPECT_THAT(order, SizeIs(100));
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_THAT(threads, SizeIs(1));
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

}  // namespace
