#include "inspector/HitJSON.h"

#include <nlohmann/json.hpp>

namespace {

using JSON = nlohmann::json;

/// The text in quotes, as JSON has it.
std::string inQuotes(std::string_view bytes) {
  std::string json = "\"";
  for (const char letter : isUTF8(bytes) ? std::string(bytes) : textOf(bytes)) {
    const auto code = static_cast<unsigned char>(letter);
    if (code < 0x20 || code == 0x7F) {
      constexpr char kDigits[] = "0123456789abcdef";
      json.append("\\u00") += kDigits[code >> 4];
      json += kDigits[code & 15];
    } else {
      if (letter == '"' || letter == '\\') json += '\\';
      json += letter;
    }
  }
  return json += '"';
}

void addMember(std::string& json, std::string_view name, std::string_view value) {
  json.append(json.empty() ? "{\"" : ",\"").append(name).append("\":").append(value);
}

void addText(std::string& json, std::string_view name, std::string_view bytes) {
  addMember(json, name, inQuotes(bytes));
}

void addNumber(std::string& json, std::string_view name, std::uint64_t number) {
  addMember(json, name, std::to_string(number));
}

std::string listOf(const Headers& headers) {
  std::string list = "[";
  for (const auto& [name, value] : headers) {
    if (list.size() > 1) list += ',';
    list.append("[").append(inQuotes(name)).append(",").append(inQuotes(value)).append("]");
  }
  return list + ']';
}

void addBody(std::string& json, const Hit& hit) {
  if (hit.bodySize == 0) return;
  const bool isText = isUTF8(hit.body);
  addText(json, isText ? "body" : "body64", isText ? hit.body : base64(hit.body));
  if (hit.bodySize != hit.body.size()) addNumber(json, "bodySize", hit.bodySize);
}

void addOutcome(std::string& json, const Hit& hit) {
  addText(json, "outcome", nameOf(hit.outcome));
  addNumber(json, "status", static_cast<std::uint64_t>(hit.status));
  addNumber(json, "elapsed", static_cast<std::uint64_t>(hit.elapsed));
}

Headers headersOf(const JSON& list) {
  Headers headers;
  for (const auto& header : list) {
    headers.emplace_back(header.at(0).get<std::string>(), header.at(1).get<std::string>());
  }
  return headers;
}

Hit hitIn(const JSON& json) {
  Hit hit;
  hit.time = timeOfISOText(json.at("time").get<std::string>()).value();
  hit.method = json.at("method").get<std::string>();
  hit.url = json.at("url").get<std::string>();
  hit.version = json.value("version", "");
  hit.headers = headersOf(json.value("headers", JSON::array()));
  hit.body = json.contains("body64") ? bytesOfBase64(json["body64"].get<std::string>()).value()
                                     : json.value("body", "");
  hit.bodySize = json.value("bodySize", std::uint64_t{hit.body.size()});
  hit.kind = kindNamed(json.value("kind", "")).value_or(kindOf(hit));
  if (json.contains("rule")) {
    hit.answer = std::make_shared<Answer>(
        Answer{smallNumber(json, "status"), {}, "", json["rule"].get<std::string>()});
  }
  apply(json, hit);
  return hit;
}

}  // namespace

int smallNumber(const JSON& json, const char* name) {
  const auto found = json.find(name);
  const double number = found != json.end() && found->is_number() ? found->get<double>() : 0;
  return number >= 0 && number <= 1e9 ? static_cast<int>(number) : 0;
}

std::string jsonOf(const Hit& hit) {
  std::string json;
  addNumber(json, "sequence", hit.sequence);
  addText(json, "time", isoText(hit.time));
  addText(json, "kind", nameOf(hit.kind));
  addText(json, "method", hit.method);
  addText(json, "url", hit.url);
  addText(json, "version", hit.version);
  addMember(json, "headers", listOf(hit.headers));
  addBody(json, hit);
  if (!hit.source.empty()) addText(json, "source", hit.source);
  if (hit.number) addText(json, "number", std::to_string(*hit.number));  // beyond 53 bits, too
  if (hit.repeats != 0) addNumber(json, "repeats", hit.repeats);
  if (hit.isOutOfOrder) addMember(json, "outOfOrder", "true");
  addOutcome(json, hit);
  if (hit.answer && !hit.answer->rule.empty()) addText(json, "rule", hit.answer->rule);
  if (hit.isPinned) addMember(json, "pinned", "true");
  return json += '}';
}

std::string changeOf(const Hit& hit) {
  std::string json;
  addNumber(json, "sequence", hit.sequence);
  addOutcome(json, hit);
  addMember(json, "pinned", hit.isPinned ? "true" : "false");
  return json += '}';
}

std::optional<Hit> hitOf(const JSON& json) try {
  return hitIn(json);
} catch (const std::exception&) {
  return std::nullopt;
}

void apply(const JSON& change, Hit& hit) try {
  hit.outcome = outcomeNamed(change.at("outcome").get<std::string>()).value_or(hit.outcome);
  hit.status = smallNumber(change, "status");
  hit.elapsed = smallNumber(change, "elapsed");
  hit.isPinned = change.value("pinned", false);
} catch (const JSON::exception&) {
}
