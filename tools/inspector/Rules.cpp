#include "inspector/Rules.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

using JSON = nlohmann::json;

std::string Rules::read(const std::string& text) {
  std::vector<Rule> rules;
  try {
    const JSON list = JSON::parse(text);
    if (!list.is_array()) return "the rules are no array";
    if (list.size() > kMostRules) return "there are too many rules";
    for (const auto& each : list) rules.push_back(Rule::fromJSON(each, now()));
  } catch (const JSON::parse_error&) {
    return "this is no JSON";
  } catch (const std::exception& error) {
    return "rule " + std::to_string(rules.size() + 1) + ": " + error.what();
  }
  rules_ = std::move(rules);
  onRead();
  return "";
}

std::string Rules::json() const {
  JSON list = JSON::array();
  for (const auto& rule : rules_) list.push_back(rule.json());
  return list.dump();
}

std::string Rules::taken() const {
  JSON list = JSON::array();
  for (const auto& rule : rules_) list.push_back(rule.taken);
  return list.dump();
}

const Rule* Rules::take(const Hit& hit) {
  const auto rule =
      std::find_if(rules_.begin(), rules_.end(), [&](const Rule& each) { return each.isFor(hit); });
  if (rule == rules_.end()) return nullptr;
  ++rule->taken;
  onTake();
  return &*rule;
}
