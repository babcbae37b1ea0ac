#include "inspector/HAR.h"

#include <nlohmann/json.hpp>

#include "inspector/HitJSON.h"

namespace {

using JSON = nlohmann::json;

JSON listOf(const Headers& headers) {
  JSON list = JSON::array();
  for (const auto& [name, value] : headers) {
    list.push_back({{"name", textOf(name)}, {"value", textOf(value)}});
  }
  return list;
}

std::string typeOf(const Headers& headers) {
  const std::string* const type = findHeader(headers, "Content-Type");
  return type != nullptr ? textOf(*type) : "";
}

JSON requestOf(const Hit& hit) {
  JSON query = JSON::array();
  for (const auto& [name, value] : parametersIn(queryOf(hit.url))) {
    query.push_back({{"name", textOf(name)}, {"value", textOf(value)}});
  }
  JSON request{{"method", textOf(hit.method)},
               {"url", textOf(hit.url)},
               {"httpVersion", hit.version},
               {"cookies", JSON::array()},
               {"headers", listOf(hit.headers)},
               {"queryString", query},
               {"headersSize", -1},
               {"bodySize", hit.bodySize}};
  if (hit.bodySize == 0) return request;
  const bool isText = isUTF8(hit.body);
  request["postData"] = {{"mimeType", typeOf(hit.headers)},
                         {"text", isText ? hit.body : base64(hit.body)}};
  if (!isText) request["postData"]["_encoding"] = "base64";
  return request;
}

JSON responseOf(const Hit& hit) {
  const Answer nothing;
  const Answer& answer = hit.answer && hit.status != 0 ? *hit.answer : nothing;
  return {{"status", hit.status},
          {"statusText", ""},
          {"httpVersion", hit.version},
          {"cookies", JSON::array()},
          {"headers", listOf(answer.headers)},
          {"content",
           {{"size", answer.body.size()},
            {"mimeType", typeOf(answer.headers)},
            {"text", textOf(answer.body)}}},
          {"redirectURL", ""},
          {"headersSize", -1},
          {"bodySize", -1}};
}

Headers headersOf(const JSON& list) {
  Headers headers;
  for (const auto& each : list) {
    headers.emplace_back(each.at("name").get<std::string>(), each.at("value").get<std::string>());
  }
  return headers;
}

/// The text, or else the parameters that some programs write in its place.
std::string bodyOf(const JSON& data) {
  std::string body = data.value("text", "");
  if (data.value("_encoding", "") == "base64") return bytesOfBase64(body).value();
  if (!body.empty()) return body;
  for (const auto& each : data.value("params", JSON::array())) {
    body += (body.empty() ? "" : "&") + each.at("name").get<std::string>() + "=" +
            each.value("value", "");
  }
  return body;
}

Hit hitIn(const JSON& entry) {
  const JSON& request = entry.at("request");
  const JSON& response = entry.at("response");
  Hit hit;
  hit.time = timeOfISOText(entry.at("startedDateTime").get<std::string>()).value();
  hit.method = request.at("method").get<std::string>();
  hit.url = request.at("url").get<std::string>();
  hit.version = request.value("httpVersion", "");
  hit.headers = headersOf(request.value("headers", JSON::array()));
  hit.body = bodyOf(request.value("postData", JSON::object()));
  hit.bodySize = hit.body.size();
  hit.kind = kindNamed(entry.value("_kind", "")).value_or(kindOf(hit));
  hit.status = smallNumber(response, "status");
  hit.elapsed = smallNumber(entry, "time");
  hit.outcome = outcomeNamed(entry.value("_outcome", ""))
                    .value_or(hit.status > 0 ? Outcome::kAnswered : Outcome::kLeft);
  hit.isPinned = entry.value("_pinned", false);
  const JSON content = response.value("content", JSON::object());
  hit.answer = std::make_shared<Answer>(
      Answer{hit.status, headersOf(response.value("headers", JSON::array())),
             content.value("text", ""), entry.value("_rule", "")});
  return hit;
}

}  // namespace

std::string harHead() {
  return R"({"log":{"version":"1.2","creator":{"name":"qv-inspector","version":")" QV_VERSION
         R"("},"entries":[)"
         "\n";
}

std::string harTail() { return "\n]}}\n"; }

std::string harEntryOf(const Hit& hit) {
  JSON entry{{"startedDateTime", isoText(hit.time)},
             {"time", hit.elapsed},
             {"request", requestOf(hit)},
             {"response", responseOf(hit)},
             {"cache", JSON::object()},
             {"timings", {{"send", 0}, {"wait", hit.elapsed}, {"receive", 0}}},
             {"_kind", nameOf(hit.kind)},
             {"_outcome", nameOf(hit.outcome)}};
  if (hit.answer && !hit.answer->rule.empty()) entry["_rule"] = hit.answer->rule;
  if (hit.isPinned) entry["_pinned"] = true;
  return entry.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

bool readHAR(const std::string& text, const std::function<void(Hit)>& onHit) {
  // Each entry is let go as soon as it was read, so that the archive is never there as a whole.
  constexpr int kDepthOfEntries = 3;
  const auto read = [&](int depth, JSON::parse_event_t event, JSON& parsed) {
    const bool isEntry = depth == kDepthOfEntries && event == JSON::parse_event_t::object_end &&
                         parsed.contains("request");
    if (!isEntry) return true;
    try {
      onHit(hitIn(parsed));
    } catch (const std::exception&) {
    }
    return false;
  };
  const JSON archive = JSON::parse(text, read, false);
  return archive.is_object() && archive.contains("log");
}
