#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "inspector/Text.h"

enum class Kind { kHit, kSegment, kConfiguration, kOther };
enum class Outcome {
  kWaiting,   // nothing was sent back so far
  kAnswered,  // with the status
  kCut,       // the connection was cut: before the answer when there is no status, else within it
  kLeft,      // the client went away before it had all of the answer
};

/// What is sent back; the same object for all the hits that a rule answers alike.
struct Answer {
  int status = 200;
  Headers headers;
  std::string body;
  std::string rule;  // the name of the rule that wants it; empty for the answer without any
};

/// A request, and what became of it.
struct Hit {
  std::uint64_t sequence = 0;  // in which it arrived, from 1
  Time time = 0;
  Kind kind = Kind::kOther;
  std::string method;
  std::string url;  // absolute, otherwise as it came
  std::string version;
  Headers headers;
  std::string body;            // as far as it is kept
  std::uint64_t bodySize = 0;  // of all of it
  std::string source;          // the file that it was read from; empty for what came just now

  std::optional<std::uint64_t> number;  // the sender's own
  std::uint64_t repeats = 0;            // the hit with the same number before it; 0 for none
  bool isOutOfOrder = false;            // there was a higher number before it

  Outcome outcome = Outcome::kWaiting;
  int status = 0;
  int elapsed = 0;  // milliseconds until the outcome
  std::shared_ptr<const Answer> answer;
  bool isPinned = false;

  /// What it takes in memory.
  std::size_t cost() const;
};

const char* nameOf(Kind kind);
const char* nameOf(Outcome outcome);
std::optional<Kind> kindNamed(std::string_view name);
std::optional<Outcome> outcomeNamed(std::string_view name);

/// What kind of request it is, as told by what the kit sends.
Kind kindOf(const Hit& hit);
/// The parameters of the URL, and of a body that is written like a query.
std::vector<Parameter> parametersOf(const Hit& hit);
