#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "tests/support/CoreTest.h"

using Hits = std::multiset<std::string>;  // by URL

/// What faults are put into. Each trial has a process of its own, a container of its own, and one
/// object: prepare(), then run() with the fault, then check() without.
class Flow {
 public:
  explicit Flow(std::string container);
  virtual ~Flow() = default;

  virtual void prepare() = 0;
  /// Returns when what was begun has come to its end.
  virtual void run() = 0;
  virtual void check() = 0;

  /// What did not hold, a line each.
  const std::string& complaints() const { return complaints_; }
  /// The hits that the next run of the application must find, where that is part of the promise.
  const std::optional<Hits>& expectedHits() const { return expectedHits_; }

  /// Starts the kit in the container without a network, and tells which hits wait then.
  static Hits hitsOfNextRun(const std::string& container);
  /// The hits that this file holds; none if it is no archive.
  static Hits hitsIn(const std::string& path);
  static Hits waitingHits();

 protected:
  void expect(bool isTrue, const std::string& what);
  void start(QVTest::ScriptedReachability::Flags flags = 0);
  static void post(const std::string& url, const std::string& body = "");
  std::string pathOfHits() const;
  /// Puts a file of these hits into the container, as an earlier run would have left it.
  void leave(const Hits& hits) const;
  /// Has the hits that wait saved once more, and expects these in the file.
  void saveAndExpect(const Hits& hits);

  const std::string container_;
  const std::shared_ptr<QVTest::ScriptedReachability> network_ =
      std::make_shared<QVTest::ScriptedReachability>(0);
  const std::shared_ptr<QVCoreInitialisation> kit_ = std::make_shared<QVCoreInitialisation>();
  std::optional<Hits> expectedHits_;

 private:
  std::string complaints_;
};

struct FlowKind {
  const char* name;
  const char* promise;  // what holds after each fault
  std::unique_ptr<Flow> (*make)(const std::string& container);
};
