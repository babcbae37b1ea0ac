#include "inspector/Collector.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

using std::chrono::ceil;
using std::chrono::milliseconds;

/// The URL that the client asked for: a proxy is given all of it, a server only what follows the
/// host.
std::string urlOf(const HTTPRequest& request) {
  if (request.method == "CONNECT") return "https://" + request.target + "/";
  if (request.target.find("://") < request.target.find('/')) return request.target;
  const std::string* const host = findHeader(request.headers, "Host");
  return "http://" + (host != nullptr ? *host : "unknown") +
         (request.target.starts_with('/') ? "" : "/") + request.target;
}

Hit hitOf(const HTTPRequest& request) {
  Hit hit;
  hit.time = now();
  hit.method = request.method;
  hit.url = urlOf(request);
  hit.version = request.version;
  hit.headers = request.headers;
  hit.body = request.body;
  hit.bodySize = request.bodySize;
  hit.kind = kindOf(hit);
  return hit;
}

/// Nobody can look into a tunnel, so it is refused.
const std::shared_ptr<const Answer>& plainAnswer(const Hit& hit) {
  static const auto ok =
      std::make_shared<const Answer>(Answer{200, {{"Content-Type", "text/plain"}}, "ok", ""});
  static const auto noTunnel = std::make_shared<const Answer>(Answer{501, {}, "", ""});
  return hit.method == "CONNECT" ? noTunnel : ok;
}

Outcome outcomeOf(Action action) {
  return action == Action::kAnswer ? Outcome::kAnswered : Outcome::kCut;
}

int statusOf(Action action, const Answer& answer) {
  return action == Action::kCut ? 0 : answer.status;
}

int since(std::chrono::steady_clock::time_point begin) {
  const auto passed = std::chrono::steady_clock::now() - begin;
  return static_cast<int>(std::chrono::duration_cast<milliseconds>(passed).count());
}

}  // namespace

void Collector::onRequest(HTTPExchange& exchange) {
  Hit hit = hitOf(exchange.request());
  const Rule* const rule = rules_.take(hit);
  const auto answer = rule != nullptr ? rule->answerTo(hit) : plainAnswer(hit);
  const Action action = rule != nullptr ? rule->action : Action::kAnswer;
  const bool waits = rule != nullptr && (rule->delay > 0 || action == Action::kSilence);
  hit.answer = answer;
  if (!waits) {
    hit.outcome = outcomeOf(action);
    hit.status = statusOf(action, *answer);
  }
  exchange.tag = store_.add(std::move(hit));
  if (!waits) return act(exchange, action, *answer);
  const auto begin = Clock::now();
  const auto due =
      action == Action::kSilence ? Clock::time_point::max() : begin + milliseconds(rule->delay);
  waiting_.emplace(&exchange, Waiting{begin, due, action, answer});
}

void Collector::act(HTTPExchange& exchange, Action action, const Answer& answer) {
  if (action == Action::kCut) return exchange.cut();
  exchange.answer({answer.status, answer.headers, answer.body, action == Action::kTruncate});
}

void Collector::onEnd(HTTPExchange& exchange, bool isDelivered) {
  const auto waiting = waiting_.find(&exchange);
  const int elapsed = waiting != waiting_.end() ? since(waiting->second.begin) : 0;
  if (waiting != waiting_.end()) waiting_.erase(waiting);
  const Hit* const hit = store_.find(exchange.tag);
  if (isDelivered || hit == nullptr || hit->outcome == Outcome::kCut) return;
  store_.setOutcome(exchange.tag, Outcome::kLeft, hit->status, std::max(elapsed, hit->elapsed));
}

void Collector::onBroken(const HTTPRequest& request, int status) {
  Hit hit = hitOf(request);
  hit.outcome = status != 0 ? Outcome::kAnswered : Outcome::kLeft;
  hit.status = status;
  store_.add(std::move(hit));
}

int Collector::answerDue() {
  auto next = Clock::time_point::max();
  std::vector<std::pair<HTTPExchange*, Waiting>> due;
  for (const auto& each : waiting_) {
    if (each.second.due <= Clock::now()) {
      due.push_back(each);
    } else {
      next = std::min(next, each.second.due);
    }
  }
  for (const auto& [exchange, waiting] : due) {
    waiting_.erase(exchange);
    store_.setOutcome(exchange->tag, outcomeOf(waiting.action),
                      statusOf(waiting.action, *waiting.answer), since(waiting.begin));
    act(*exchange, waiting.action, *waiting.answer);
  }
  if (!due.empty()) return 0;
  if (next == Clock::time_point::max()) return -1;
  return static_cast<int>(ceil<milliseconds>(next - Clock::now()).count());
}
