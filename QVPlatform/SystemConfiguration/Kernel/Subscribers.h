#pragma once

#include <QVPlatform/Foundation/CallOut.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace QVPlatform {

/// Who is to be told of changes, for as long as each keeps what add() answered. The list of a
/// moment is never changed: who has taken a copy under a lock, which takes no memory, tells without
/// it.
class Subscribers {
 public:
  using Changed = std::function<void()>;

  /// The subscription, which ends when it is released. When memory runs out the list stays as it
  /// is.
  std::shared_ptr<void> add(Changed changed) {
    auto added = std::make_shared<const Changed>(std::move(changed));
    auto extended = list_ ? std::make_shared<List>(*list_) : std::make_shared<List>();
    std::erase_if(*extended, isOver);
    extended->push_back(added);
    list_ = std::move(extended);
    return std::const_pointer_cast<Changed>(added);
  }
  bool isEmpty() const { return !list_ || std::ranges::all_of(*list_, isOver); }
  /// Calls each of them, as in callOut().
  void tell() const {
    if (!list_) return;
    for (const Subscriber& subscriber : *list_) {
      if (const auto changed = subscriber.lock()) callOut(*changed);
    }
  }

 private:
  using Subscriber = std::weak_ptr<const Changed>;
  using List = std::vector<Subscriber>;

  static bool isOver(const Subscriber& subscriber) { return subscriber.expired(); }

  std::shared_ptr<const List> list_;
};

}  // namespace QVPlatform
