#include "tests/support/Test.h"

namespace {

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

TEST(OperationQueue, RunsOneAfterTheOtherInOrder) {
  OperationQueue queue;
  std::vector<int> order;
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
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
}

TEST(OperationQueue, StartsNothingWhileSuspendedAndListsWhatWaits) {
  const auto queue = std::make_shared<OperationQueue>();
  std::atomic<int> runs = 0;
  queue->setSuspended(true);
  const auto first = operation([&runs] { ++runs; });
  const auto second = operation([&runs] { ++runs; });
  queue->addOperation(first);
  queue->addOperation(second);
  queue->addOperation(nullptr);
  EXPECT_THAT(queue->operations(), ElementsAre(first, second));
  EXPECT_EQ(queue->operationAtIndex(1), second);
  EXPECT_EQ(queue->operationAtIndex(2), nullptr);
  EXPECT_EQ(runs, 0);
  queue->setSuspended(false);
  drain(*queue);
  EXPECT_EQ(runs, 2);
}

TEST(OperationQueue, LetsARunningOperationGoOnWhenSuspendedAndListsItFirst) {
  OperationQueue queue;
  std::promise<void> started;
  std::promise<void> mayEnd;
  const auto running = operation([&] {
    started.set_value();
    mayEnd.get_future().wait();
  });
  queue.addOperation(running);
  started.get_future().wait();
  queue.setSuspended(true);
  const auto waiting = operation();
  queue.addOperation(waiting);
  EXPECT_THAT(queue.operations(), ElementsAre(running, waiting));
  mayEnd.set_value();
  while (queue.operationCount() != 1) std::this_thread::yield();
  EXPECT_THAT(queue.operations(), ElementsAre(waiting));
}

TEST(OperationQueue, KeepsCancelledOperationsInTheListAndDoesNotRunThem) {
  OperationQueue queue;
  std::atomic<int> runs = 0;
  queue.setSuspended(true);
  const auto kept = operation([&runs] { ++runs; });
  queue.addOperation(operation([&runs] { runs += 100; }));
  queue.addOperation(kept);
  queue.operations().front()->cancel();
  EXPECT_EQ(queue.operationCount(), 2U);
  EXPECT_EQ(queue.firstOperationPassingTest(kAny), kept);
  EXPECT_TRUE(queue.operations().front()->isCancelled());
  EXPECT_TRUE(queue.operationAtIndex(0)->isCancelled());
  EXPECT_EQ(queue.operationAtIndex(1), kept);
  queue.setSuspended(false);
  drain(queue);
  EXPECT_EQ(runs, 1);
}

TEST(OperationQueue, KeepsTheIdentityOfACancelledOperationThatSomebodyHolds) {
  OperationQueue queue;
  queue.setSuspended(true);
  const auto held = operation();
  queue.addOperation(held);
  queue.cancelAllOperations();
  queue.addOperation(operation());
  EXPECT_EQ(queue.operations().front(), held);
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
  queue.addOperation(std::make_shared<Holder>());
  EXPECT_EQ(queue.operationCount(), 1001U);
  EXPECT_EQ(std::erase_if(all, [](const auto& each) { return each.expired(); }), 999U);
  EXPECT_THAT(works, Each(::testing::Property(&std::weak_ptr<int>::expired, true)));
  for (const auto& each : queue.operations()) EXPECT_TRUE(dynamic_cast<Holder*>(each.get()));
  EXPECT_EQ(queue.operationAtIndex(999), all.front().lock());
  // One of another kind keeps its place.
  queue.addOperation(operation());
  queue.cancelAllOperations();
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
  queue->setSuspended(true);
  queue->addObserverForOperationCount(watcher, watcher.get());
  queue->addOperation(operation());
  queue->addOperation(operation());
  queue->setSuspended(false);
  while (queue->operationCount() > 0) std::this_thread::yield();
  const auto isTold = [&watcher] {
    const std::lock_guard lock(watcher->mutex);
    return watcher->counts.size() == 4;
  };
  while (!isTold()) std::this_thread::yield();
  EXPECT_THAT(watcher->counts, ElementsAre(1, 2, 1, 0));
  EXPECT_EQ(watcher->threads[1], std::this_thread::get_id());
  EXPECT_NE(watcher->threads[2], std::this_thread::get_id());
}

TEST(OperationQueue, DropsARunOfCancelledOperationsAsOneChange) {
  const auto queue = std::make_shared<OperationQueue>();
  const auto watcher = std::make_shared<Watcher>();
  queue->setSuspended(true);
  for (int i = 0; i < 3; ++i) queue->addOperation(operation());
  queue->cancelAllOperations();
  queue->addObserverForOperationCount(watcher, watcher.get());
  queue->setSuspended(false);
  while (queue->operationCount() > 0) std::this_thread::yield();
  drain(*queue);
  const std::lock_guard lock(watcher->mutex);
  EXPECT_THAT(watcher->counts, Each(::testing::Lt(2)));  // from three to none at once
}

TEST(OperationQueue, GoesOnAfterAnOperationThatThrows) {
  OperationQueue queue;
  queue.addOperation(operation([] { throw 1; }));
  drain(queue);
  EXPECT_FALSE(queue.isSuspended());
}

TEST(OperationQueue, CanBeDestroyedWhileItRunsAnOperation) {
  std::promise<void> started;
  std::promise<void> mayEnd;
  std::promise<void> ended;
  auto queue = std::make_unique<OperationQueue>();
  auto waiting = operation();
  const std::weak_ptr<Operation> dropped = waiting;
  queue->addOperation(operation([&] {
    started.set_value();
    mayEnd.get_future().wait();
    ended.set_value();
  }));
  queue->addOperation(std::move(waiting));
  started.get_future().wait();
  queue.reset();
  EXPECT_TRUE(dropped.expired());
  mayEnd.set_value();
  ended.get_future().wait();
}

}  // namespace
