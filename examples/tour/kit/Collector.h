#pragma once

#include <string>
#include <vector>

/// The server that hits go to, on a free port of 127.0.0.1. Answers with the status N to a hit
/// for /status/N, and with 200 to any other. Takes down what it receives before it answers.
///
/// Threads: all operations may be called from any thread. Lifetime: one that was made answers until
/// the process ends, since to stop a server is to wait for connections that nobody closes.
class Collector {
 public:
  Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  /// Without a slash at its end.
  std::string url() const;
  /// What came since the last call, in order: "POST /hit page=home".
  std::vector<std::string> takeHits();
  /// How many connections hits have come over so far.
  std::size_t connections() const;

 private:
  struct State;

  State& state_;
};
