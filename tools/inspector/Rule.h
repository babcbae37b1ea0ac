#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "inspector/Hit.h"

/// Which requests a rule is for: those for which all holds that is given. In the patterns, as in a
/// shell's, * stands for anything and ? for one character.
struct Match {
  std::optional<Kind> kind;
  std::string method;                             // empty for any
  std::string path;                               // a pattern; empty for any
  std::map<std::string, std::string> parameters;  // each there, with a value of this pattern
  std::map<std::string, std::string> headers;     // likewise
  std::string text;                               // found in the URL or the body as they came

  bool holdsFor(const Hit& hit) const;
};

/// What is done with a request.
enum class Action {
  kAnswer,
  kCut,       // the connection is closed without an answer
  kTruncate,  // the connection is closed amid the answer
  kSilence,   // nothing is sent, until the client leaves
};

/// Requests that match are answered so. What the members mean, and how they look in JSON, is told
/// to those who write rules in docs/inspector.md.
struct Rule {
  static constexpr int kLongestDelay = 600'000;

  std::string name;
  bool isEnabled = true;
  Match match;
  std::uint64_t times = 0;  // how often it is taken at most; 0 for any number
  std::uint64_t taken = 0;

  Action action = Action::kAnswer;
  int delay = 0;  // milliseconds
  std::shared_ptr<const Answer> answer = std::make_shared<Answer>();
  bool isConfiguration = false;
  Time modified = 0;  // of a configuration

  bool isFor(const Hit& hit) const;
  /// The rule's own answer, or that the client's copy of the configuration is up to date.
  std::shared_ptr<const Answer> answerTo(const Hit& hit) const;

  /// Throws std::runtime_error with what is wrong. A configuration without a time is of `now`.
  static Rule fromJSON(const nlohmann::json& json, Time now);
  nlohmann::json json() const;
};
