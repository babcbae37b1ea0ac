#include "inspector/Live.h"

#include <set>
#include <utility>

#include "inspector/HitJSON.h"

namespace {

constexpr std::chrono::milliseconds kPause{50};  // more often than that nobody looks
constexpr std::size_t kEventSize = 1U << 16;

std::string event(const char* name, const std::string& data) {
  return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

}  // namespace

/// What one page was told, and lacks.
class Live::Page : public HTTPStream {
 public:
  explicit Page(const Live& live) : live_(live), next_(0) {}

  std::string next() override {
    if (std::exchange(needsState, false)) return event("state", live_.state_());
    if (std::exchange(needsRules, false)) return event("rules", live_.rules_.json());
    if (std::exchange(needsTaken, false)) return event("taken", live_.rules_.taken());
    return nextHits();
  }

  bool isAtEnd() const override { return false; }

  void noteChange(std::uint64_t sequence) {
    if (sequence < next_) changed_.insert(sequence);
  }

  void clear() {
    isCleared_ = true;
    changed_.clear();
  }

  /// The page forgets all when it is told the state.
  void restart() {
    needsState = needsRules = true;
    next_ = 0;
    changed_.clear();
  }

  bool needsState = true;
  bool needsRules = true;
  bool needsTaken = false;

 private:
  std::string nextHits() {
    const auto& store = live_.store_;
    std::string hits;
    const auto add = [&](const std::string& json) {
      if (!hits.empty()) hits += ',';
      hits += json;
    };
    while (!changed_.empty() && hits.size() < kEventSize) {
      const std::uint64_t sequence = *changed_.begin();
      changed_.erase(changed_.begin());
      const Hit* const hit = store.find(sequence);
      add(hit != nullptr ? changeOf(*hit)
                         : "{\"sequence\":" + std::to_string(sequence) + ",\"gone\":true}");
    }
    for (const Hit* hit; hits.size() < kEventSize && (hit = store.findFrom(next_)) != nullptr;) {
      add(jsonOf(*hit));
      next_ = hit->sequence + 1;
    }
    const bool isCleared = std::exchange(isCleared_, false);
    if (hits.empty() && !isCleared) return "";
    return event("hits", "{\"first\":" + std::to_string(store.first()) +
                             ",\"dropped\":" + std::to_string(store.dropped()) +
                             (isCleared ? ",\"cleared\":true" : "") + ",\"hits\":[" + hits + "]}");
  }

  const Live& live_;
  std::uint64_t next_;               // the first hit that it was not told of
  std::set<std::uint64_t> changed_;  // of those before
  bool isCleared_ = false;
};

Live::Live(const Store& store, Rules& rules, std::function<std::string()> state)
    : store_(store), rules_(rules), state_(std::move(state)) {
  rules_.onRead = [this] {
    for (const auto& [exchange, page] : pages_) page->needsRules = true;
    hasNews_ = true;
  };
  rules_.onTake = [this] {
    for (const auto& [exchange, page] : pages_) page->needsTaken = true;
    hasNews_ = true;
  };
}

std::shared_ptr<HTTPStream> Live::open(HTTPExchange& exchange) {
  return pages_.emplace_back(&exchange, std::make_shared<Page>(*this)).second;
}

void Live::close(HTTPExchange& exchange) {
  pages_.remove_if([&](const auto& each) { return each.first == &exchange; });
}

void Live::sendStateAnew() {
  for (const auto& [exchange, page] : pages_) page->restart();
  hasNews_ = true;
}

int Live::flush() {
  if (!hasNews_) return -1;
  const auto passed = std::chrono::steady_clock::now() - lastFlush_;
  if (passed < kPause) {
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(kPause - passed).count());
  }
  hasNews_ = false;
  lastFlush_ = std::chrono::steady_clock::now();
  for (const auto& [exchange, page] : pages_) exchange->wake();
  return pages_.empty() ? -1 : 0;
}

void Live::onAdded(const Hit&) { hasNews_ = true; }

void Live::onChanged(const Hit& hit) {
  for (const auto& [exchange, page] : pages_) page->noteChange(hit.sequence);
  hasNews_ = true;
}

void Live::onCleared() {
  for (const auto& [exchange, page] : pages_) page->clear();
  hasNews_ = true;
}
