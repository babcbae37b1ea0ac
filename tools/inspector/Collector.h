#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "inspector/HTTPServer.h"
#include "inspector/Rules.h"
#include "inspector/Store.h"

/// Takes whatever is sent to its port, puts it into the store and answers it by the rules; what no
/// rule is for gets 200.
class Collector : public HTTPHandler {
 public:
  static constexpr std::size_t kKeptOfBody = std::size_t{1} << 20;  // bytes

  Collector(Store& store, Rules& rules) : store_(store), rules_(rules) {}

  void onRequest(HTTPExchange& exchange) override;
  void onEnd(HTTPExchange& exchange, bool isDelivered) override;
  void onBroken(const HTTPRequest& request, int status) override;

  /// Answers those whose delay is over. Answers for how many milliseconds there is nothing to do;
  /// -1 for any time.
  int answerDue();

 private:
  using Clock = std::chrono::steady_clock;

  struct Waiting {
    Clock::time_point begin;
    Clock::time_point due;
    Action action;
    std::shared_ptr<const Answer> answer;
  };

  static void act(HTTPExchange& exchange, Action action, const Answer& answer);

  Store& store_;
  Rules& rules_;
  std::unordered_map<HTTPExchange*, Waiting>
      waiting_;  // for a delay to end, or the client to leave
};
