#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "inspector/HTTPServer.h"
#include "inspector/Rules.h"
#include "inspector/Store.h"

/// Keeps the pages up to date, by server-sent events:
///   state  once, and first: what the inspector was started with. The page begins anew
///   rules  all rules; taken: how often each was taken
///   hits   {"first", "dropped", "cleared", "hits"}: new hits whole, of others what has changed, or
///          that they are gone. Hits before `first` are gone, but for those that are pinned
///
/// A page is told what it lacks when its connection has room, so it costs no more than its place in
/// the store, however slow it is.
class Live : public StoreObserver {
 public:
  Live(const Store& store, Rules& rules, std::function<std::string()> state);

  /// The stream to answer the exchange with.
  std::shared_ptr<HTTPStream> open(HTTPExchange& exchange);
  void close(HTTPExchange& exchange);
  /// To be called when the state has changed.
  void sendStateAnew();
  /// Wakes the pages, if there is something to tell and enough time has passed. Answers in how many
  /// milliseconds there is more to do; -1 for never.
  int flush();

  void onAdded(const Hit& hit) override;
  void onChanged(const Hit& hit) override;
  void onCleared() override;

 private:
  class Page;

  const Store& store_;
  Rules& rules_;
  const std::function<std::string()> state_;
  std::list<std::pair<HTTPExchange*, std::shared_ptr<Page>>> pages_;
  bool hasNews_ = false;
  std::chrono::steady_clock::time_point lastFlush_;
};
