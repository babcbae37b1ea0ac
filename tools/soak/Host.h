#pragma once

#include <QVCore/QVCore.h>
#include <QVPlatform/Dispatch/NotificationCenter.h>

#include <chrono>
#include <functional>
#include <memory>
#include <random>

#include "soak/Errand.h"
#include "soak/Ledger.h"
#include "tour/kit/ScriptedNetwork.h"

/// An application that sends hits through the core while its network comes and goes, while it goes
/// to the background and back, and that ends as its errand says. It takes everything down in its
/// ledger. One a process; used by the main thread.
class Host {
 public:
  explicit Host(const Errand& errand);
  /// Has it send no more, as a handler of signals does.
  static void stop();

  /// Runs the errand and returns the process's exit status, unless the process ends before.
  int run();

 private:
  void start();
  void sendBursts();
  void waitForTurn();
  void sendBurst();
  void beginTrouble();
  void endTrouble();
  void addConfiguration() const;
  void updateConfiguration();
  void sendLastOfBurst();
  void visitBackground();
  void enterBackground();
  void end();
  void shutDown();

  /// Takes so many of the hits that are left, or fewer, and returns the first.
  HitID take(std::uint32_t* count);
  void postSome(std::uint32_t count);
  void postFromThreads(std::uint32_t count);
  void post(HitID hit, const char* place);
  /// Has the function post a request of any kind, and takes down which hits that cancels.
  void handOver(const std::function<void()>& request);
  void onOutcome(const QVPlatform::Notification& outcome);

  void sendFromFork();
  [[noreturn]] void runForked(HitID first, std::uint32_t count);

  void setNetworkUp(bool isUp);
  /// Runs the main queue until all hits are gone.
  void drain();
  /// Ends the process if it takes too long.
  void runUntil(const std::function<bool()>& condition);
  void pauseUpTo(int microseconds);
  void killLater();
  std::uint32_t upTo(std::uint32_t most);  // from 1
  bool chance(unsigned percent);
  bool lasts() const { return errand_.seconds > 0; }

  static constexpr std::int32_t kSmallQueue = 20;

  const Errand errand_;
  std::unique_ptr<Ledger> ledger_;
  std::mt19937 random_;
  const bool savesAlways_;
  const bool runsInBackground_;
  const bool hasSmallQueue_;
  const bool forks_;
  bool isUp_;
  const std::shared_ptr<ScriptedNetwork> network_;
  HitID next_;
  std::uint32_t left_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};
