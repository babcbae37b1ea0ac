#include "inspector/Control.h"

#include <arpa/inet.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "inspector/EmbeddedPage.h"
#include "inspector/Files.h"

namespace {

/// Nothing but the page's own files, no script within it, and no text that becomes markup.
const Headers kSafety{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
     "form-action 'self'; base-uri 'none'; frame-ancestors 'none'; "
     "require-trusted-types-for 'script'; trusted-types 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Referrer-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

HTTPReply plain(int status, std::string text = "") {
  return {status, {{"Content-Type", "text/plain; charset=utf-8"}}, std::move(text)};
}

HTTPReply done(std::size_t count) {
  return {200, {{"Content-Type", "application/json"}}, "{\"count\":" + std::to_string(count) + "}"};
}

/// An address, or "localhost", with or without a port.
bool isOwnName(std::string host) {
  in6_addr address;
  if (host.starts_with('[')) {
    host = host.substr(1, host.find(']') - 1);
    return inet_pton(AF_INET6, host.c_str(), &address) == 1;
  }
  host = host.substr(0, host.find(':'));
  return host == "localhost" || inet_pton(AF_INET, host.c_str(), &address) == 1;
}

/// Whether the page itself asks, or no browser at all.
bool isOurs(const HTTPRequest& request) {
  const std::string* const host = findHeader(request.headers, "Host");
  const std::string* const origin = findHeader(request.headers, "Origin");
  const std::string* const site = findHeader(request.headers, "Sec-Fetch-Site");
  if (host == nullptr || !isOwnName(*host)) return false;
  if (origin != nullptr && *origin != "http://" + *host) return false;
  // A link on another site may well lead to the page.
  const bool isPage = request.method == "GET" && pathOf(request.target) == "/";
  return site == nullptr || *site == "same-origin" || *site == "none" || isPage;
}

const char* mediaTypeOf(std::string_view name) {
  if (name.ends_with(".html")) return "text/html; charset=utf-8";
  if (name.ends_with(".css")) return "text/css; charset=utf-8";
  if (name.ends_with(".svg")) return "image/svg+xml";
  return "text/javascript; charset=utf-8";
}

HTTPReply pageFile(std::string_view path) {
  const std::string_view name = path == "/" ? "index.html" : path.substr(1);
  for (const auto& file : pageFiles()) {
    if (file.name == name) {
      return {200, {{"Content-Type", mediaTypeOf(name)}}, std::string(file.content)};
    }
  }
  return plain(404, "There is no such file.");
}

std::string parameter(std::string_view query, std::string_view name) {
  for (auto& each : parametersIn(query)) {
    if (each.name == name) return each.value;
  }
  return "";
}

}  // namespace

void Control::onRequest(HTTPExchange& exchange) {
  const HTTPRequest& request = exchange.request();
  const std::string_view path = pathOf(request.target);
  HTTPReply reply;
  if (!isOurs(request)) {
    reply = plain(403, "This is for the inspector's own page.");
  } else if (path == "/api/live" && request.method == "GET") {
    reply = {200, {{"Content-Type", "text/event-stream"}}, "", false, live_.open(exchange)};
  } else if (path.starts_with("/api/")) {
    reply = callFunction(request, path.substr(5));
  } else {
    reply = request.method == "GET" ? pageFile(path) : plain(405);
  }
  reply.headers.insert(reply.headers.end(), kSafety.begin(), kSafety.end());
  exchange.answer(std::move(reply));
}

void Control::onEnd(HTTPExchange& exchange, bool) { live_.close(exchange); }

HTTPReply Control::callFunction(const HTTPRequest& request, std::string_view path) {
  const std::string call = request.method + " " + std::string(path.substr(0, path.find('/')));
  if (call == "DELETE hits") {
    store_.clear();
    return done(0);
  }
  if (call == "PUT pins" || call == "DELETE pins") return pin(request, path);
  if (call == "GET rules") {
    return {200, {{"Content-Type", "application/json"}}, rules_.json()};
  }
  if (call == "PUT rules") return replaceRules(request);
  if (call == "POST import") return importFile(request);
  if (call == "POST export" || call == "GET export") return exportHits(request);
  return plain(404, "There is no such function.");
}

HTTPReply Control::pin(const HTTPRequest& request, std::string_view path) {
  const auto sequence = numberIn(path.substr(path.find('/') + 1), ~std::uint64_t{0});
  const bool isDone = sequence && store_.setPinned(*sequence, request.method == "PUT");
  return isDone ? done(1) : plain(409, "There is no such hit any more, or too many are pinned.");
}

HTTPReply Control::replaceRules(const HTTPRequest& request) {
  const std::string error = rules_.read(request.body);
  return error.empty() ? done(0) : plain(400, error);
}

HTTPReply Control::importFile(const HTTPRequest& request) {
  if (request.bodySize > request.body.size()) return plain(413, "The file is too large.");
  std::string name = textOf(parameter(queryOf(request.target), "name"));
  const auto count = import(request.body, name.empty() ? "import" : name, store_);
  return count ? done(*count)
               : plain(400,
                       "The file holds no hits: it is to be JSON lines, an HTTP archive or "
                       "commands of curl.");
}

HTTPReply Control::exportHits(const HTTPRequest& request) {
  const std::string_view query = request.method == "POST" ? request.body : queryOf(request.target);
  const auto* const format = Export::formatNamed(parameter(query, "format"));
  auto ranges = rangesIn(parameter(query, "hits"));
  if (format == nullptr || !ranges)
    return plain(400, "format is jsonl, har or curl; hits is like 1-5,9");
  const std::string fileName = Export::fileNameOf(*format);
  return {200,
          {{"Content-Type", Export::mediaTypeOf(*format)},
           {"Content-Disposition", "attachment; filename=\"" + fileName + "\""}},
          "",
          false,
          std::make_shared<Export>(store_, *format, std::move(*ranges))};
}
