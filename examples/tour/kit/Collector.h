#pragma once

#include <ctime>
#include <string>
#include <vector>

/// The server that hits go to, on a free port of 127.0.0.1. Answers with the status N to a hit
/// for /status/N, and with 200 to any other. To a request for /vendors.json it answers with what
/// was published last, or with 304 if the request has it. Takes down what it receives before it
/// answers.
///
/// Threads: all operations may be called from any thread. Lifetime: one that was made answers until
/// the process ends, since to stop a server is to wait for connections that nobody closes.
class Collector {
 public:
  Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  // Times before, and after, anything that the tour does.
  static constexpr std::time_t kLongAgo = 1'000'000'000;
  static constexpr std::time_t kFarAhead = 4'000'000'000;

  /// Without a slash at its end.
  std::string url() const;
  /// Publishes /vendors.json, as last changed at that time.
  void publish(std::string text, std::time_t modified);
  /// What came since the last call, in order: "POST /hit page=home", "GET /vendors.json: 304".
  std::vector<std::string> takeHits();
  /// How many connections hits have come over so far.
  std::size_t connections() const;

 private:
  struct State;

  State& state_;
};
