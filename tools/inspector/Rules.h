#pragma once

#include <functional>
#include <string>
#include <vector>

#include "inspector/Rule.h"

/// The answer rules, in order: the first one that is for a request counts.
class Rules {
 public:
  static constexpr std::size_t kMostRules = 200;

  /// Replaces all rules by those of a JSON array. Answers what is wrong, and changes nothing then;
  /// an empty text when nothing is.
  std::string read(const std::string& text);
  std::string json() const;
  /// A JSON array: how often each was taken.
  std::string taken() const;

  /// The rule for the hit, which is counted as taken; nullptr if there is none. Valid until the
  /// rules are read again.
  const Rule* take(const Hit& hit);

  /// Called when the rules have been read, and when one was taken.
  std::function<void()> onRead = [] {};
  std::function<void()> onTake = [] {};

 private:
  std::vector<Rule> rules_;
};
