#pragma once

#include <atomic>
#include <chrono>
#include <random>
#include <string>

#include "soak/Errand.h"
#include "soak/History.h"
#include "soak/Options.h"
#include "soak/Server.h"
#include "soak/Vitals.h"

/// Hosts that live one after the other in the same container directory, and their server. Lanes
/// have nothing in common, so that any number may run at once.
class Lane {
 public:
  /// The directory is there, and the lane's own.
  /// One whose host lasts has no other but that.
  Lane(const Options& options, std::uint64_t seed, std::string directory, bool lasts = false);

  /// Lets hosts send the options' number of hits, and a last one what is left. Stops early, after
  /// the host that lives, when `isStopped` turns true or twice the time is over.
  void run(const std::atomic<bool>& isStopped);
  const History& history() const { return history_; }
  /// Of the host that lasts.
  const Vitals& vitals() const { return vitals_; }

 private:
  Errand nextErrand();
  void live(const Errand& errand);
  /// Waits until the host and what it forked are gone. Returns the host's wait status.
  int runHost(const Errand& errand);
  void readLedgers(const std::string& ledger, int life);
  void addReceptions();
  std::set<HitID> readFile(Life& life) const;
  void waitForTurn(std::chrono::steady_clock::time_point begin) const;

  const Options options_;
  const std::string directory_;
  const std::string container_;
  const bool lasts_;
  std::mt19937_64 random_;
  Server server_;
  HitID next_ = 1;
  History history_;
  Vitals vitals_;
  const std::atomic<bool>* isStopped_ = nullptr;
};
