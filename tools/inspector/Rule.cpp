#include "inspector/Rule.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

using JSON = nlohmann::json;

constexpr std::array kActions{"answer", "cut", "truncate", "silence"};

bool fits(const std::string& pattern, const std::string& text) {
  return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

/// The member, or the default if there is none; another type is an error.
template <typename T>
T member(const JSON& json, const char* name, T otherwise) {
  try {
    return json.value(name, otherwise);
  } catch (const JSON::exception&) {
    throw std::runtime_error(std::string(name) + " is of a wrong type");
  }
}

/// A whole number within the limits.
std::uint64_t number(const JSON& json, const char* name, std::uint64_t otherwise,
                     std::uint64_t least, std::uint64_t most) {
  const auto found = json.find(name);
  if (found == json.end()) return otherwise;
  const auto value = found->is_number_unsigned() ? found->get<std::uint64_t>() : most + 1;
  if (value >= least && value <= most) return value;
  throw std::runtime_error(std::string(name) + " is no whole number from " + std::to_string(least) +
                           " to " + std::to_string(most));
}

void refuseOthers(const JSON& json, std::initializer_list<std::string_view> known) {
  if (!json.is_object()) throw std::runtime_error("what should be an object is none");
  for (const auto& [name, value] : json.items()) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw std::runtime_error("there is no member " + name);
    }
  }
}

bool isToken(const std::string& text) {
  constexpr std::string_view kSeparators = "()<>@,;:\\\"/[]?={}";
  return !text.empty() && std::all_of(text.begin(), text.end(), [&](char letter) {
    return letter > ' ' && letter < 0x7F && kSeparators.find(letter) == std::string::npos;
  });
}

Match matchFrom(const JSON& json) {
  refuseOthers(json, {"kind", "method", "path", "parameters", "headers", "text"});
  using Patterns = std::map<std::string, std::string>;
  const auto kind = member<std::string>(json, "kind", "");
  if (!kind.empty() && !kindNamed(kind)) throw std::runtime_error("there is no kind " + kind);
  return {kindNamed(kind),
          member<std::string>(json, "method", ""),
          member<std::string>(json, "path", ""),
          member(json, "parameters", Patterns()),
          member(json, "headers", Patterns()),
          member<std::string>(json, "text", "")};
}

JSON jsonOf(const Match& match) {
  JSON json = JSON::object();
  if (match.kind) json["kind"] = nameOf(*match.kind);
  if (!match.method.empty()) json["method"] = match.method;
  if (!match.path.empty()) json["path"] = match.path;
  if (!match.parameters.empty()) json["parameters"] = match.parameters;
  if (!match.headers.empty()) json["headers"] = match.headers;
  if (!match.text.empty()) json["text"] = match.text;
  return json;
}

void requireHeader(const std::string& name, const std::string& value) {
  if (isToken(name) && value.find_first_of("\r\n") == std::string::npos) return;
  throw std::runtime_error("a header cannot be " + name + ": " + value);
}

Headers headersFrom(const JSON& json) {
  Headers headers;
  for (const auto& [name, value] : member(json, "headers", std::map<std::string, std::string>())) {
    requireHeader(name, value);
    headers.emplace_back(name, value);
  }
  return headers;
}

void readAnswer(const JSON& json, Time now, Rule& rule) {
  refuseOthers(json, {"action", "status", "delay", "headers", "body", "configuration", "modified"});
  const auto action = member<std::string>(json, "action", kActions[0]);
  const auto found = std::find(kActions.begin(), kActions.end(), action);
  if (found == kActions.end()) throw std::runtime_error("there is no action " + action);
  rule.action = static_cast<Action>(found - kActions.begin());
  rule.delay = static_cast<int>(number(json, "delay", 0, 0, Rule::kLongestDelay));
  Answer answer{static_cast<int>(number(json, "status", 200, 200, 599)), headersFrom(json),
                member<std::string>(json, "body", ""), rule.name};
  rule.isConfiguration = json.contains("configuration");
  if (rule.isConfiguration) {
    const auto modified = member<std::string>(json, "modified", "");
    const auto time = modified.empty() ? std::optional(now) : timeOfISOText(modified);
    if (!time) throw std::runtime_error("modified is no time like 2026-11-21T20:40:00Z");
    rule.modified = *time / 1000 * 1000;  // more precision has no Last-Modified
    answer.body = json["configuration"].dump();
    answer.headers.emplace_back("Content-Type", "application/json");
    answer.headers.emplace_back("Last-Modified", httpDate(rule.modified));
  }
  rule.answer = std::make_shared<Answer>(std::move(answer));
}

}  // namespace

bool Match::holdsFor(const Hit& hit) const {
  if (kind && *kind != hit.kind) return false;
  if (!method.empty() && method != hit.method) return false;
  if (!path.empty() && !fits(path, std::string(pathOf(hit.url)))) return false;
  if (!text.empty() && hit.url.find(text) == std::string::npos &&
      hit.body.find(text) == std::string::npos) {
    return false;
  }
  for (const auto& [name, pattern] : headers) {
    const std::string* const value = findHeader(hit.headers, name);
    if (value == nullptr || !fits(pattern, *value)) return false;
  }
  if (parameters.empty()) return true;
  const auto given = parametersOf(hit);
  return std::all_of(parameters.begin(), parameters.end(), [&](const auto& wanted) {
    return std::any_of(given.begin(), given.end(), [&](const Parameter& each) {
      return each.name == wanted.first && fits(wanted.second, each.value);
    });
  });
}

bool Rule::isFor(const Hit& hit) const {
  return isEnabled && (times == 0 || taken < times) && match.holdsFor(hit);
}

std::shared_ptr<const Answer> Rule::answerTo(const Hit& hit) const {
  const std::string* const since = findHeader(hit.headers, "If-Modified-Since");
  if (!isConfiguration || since == nullptr) return answer;
  const auto time = timeOfHTTPDate(*since);
  if (!time || *time < modified) return answer;
  return std::make_shared<Answer>(
      Answer{304, {{"Last-Modified", httpDate(modified)}}, "", answer->rule});
}

Rule Rule::fromJSON(const JSON& json, Time now) {
  refuseOthers(json, {"name", "enabled", "match", "times", "taken", "answer"});
  Rule rule;
  constexpr std::uint64_t kMost = 1'000'000'000;
  rule.name = member<std::string>(json, "name", "");
  rule.isEnabled = member(json, "enabled", true);
  rule.match = matchFrom(json.value("match", JSON::object()));
  rule.times = number(json, "times", 0, 0, kMost);
  rule.taken = number(json, "taken", 0, 0, kMost);
  readAnswer(json.value("answer", JSON::object()), now, rule);
  return rule;
}

JSON Rule::json() const {
  JSON sent{{"action", kActions[static_cast<std::size_t>(action)]}, {"status", answer->status}};
  if (delay != 0) sent["delay"] = delay;
  for (const auto& [headerName, value] : answer->headers) {
    const bool isMadeHere =
        isConfiguration && (headerName == "Content-Type" || headerName == "Last-Modified");
    if (!isMadeHere) sent["headers"][headerName] = value;
  }
  if (isConfiguration) {
    sent["configuration"] = JSON::parse(answer->body);
    sent["modified"] = isoText(modified);
  } else if (!answer->body.empty()) {
    sent["body"] = answer->body;
  }
  JSON all{{"name", name}, {"enabled", isEnabled}, {"match", jsonOf(match)}, {"answer", sent}};
  if (times != 0) all["times"] = times;
  if (taken != 0) all["taken"] = taken;
  return all;
}
