#include "inspector/Hit.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array kKinds{"hit", "segment", "configuration", "other"};
constexpr std::array kOutcomes{"waiting", "answered", "cut", "left"};

template <typename Enumeration, std::size_t N>
std::optional<Enumeration> named(std::string_view name, const std::array<const char*, N>& names) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<Enumeration>(found - names.begin());
}

}  // namespace

std::size_t Hit::cost() const {
  std::size_t size = sizeof *this + method.capacity() + url.capacity() + version.capacity() +
                     body.capacity() + source.capacity() +
                     headers.capacity() * sizeof(Headers::value_type);
  for (const auto& [name, value] : headers) size += name.capacity() + value.capacity();
  // Of what was read from a file each hit has an answer of its own.
  if (answer && !source.empty()) size += sizeof *answer + answer->body.capacity();
  return size;
}

const char* nameOf(Kind kind) { return kKinds[static_cast<std::size_t>(kind)]; }
const char* nameOf(Outcome outcome) { return kOutcomes[static_cast<std::size_t>(outcome)]; }
std::optional<Kind> kindNamed(std::string_view name) { return named<Kind>(name, kKinds); }
std::optional<Outcome> outcomeNamed(std::string_view name) {
  return named<Outcome>(name, kOutcomes);
}

Kind kindOf(const Hit& hit) {
  const std::string_view path = pathOf(hit.url);
  const bool isGet = hit.method == "GET";
  if (isGet && (path.ends_with(".json") || findHeader(hit.headers, "If-Modified-Since"))) {
    return Kind::kConfiguration;
  }
  if (path.find("/segment") != std::string::npos) return Kind::kSegment;
  const bool saysSomething = !queryOf(hit.url).empty() || hit.bodySize > 0;
  const bool isOfTheKit = isGet || hit.method == "POST";
  return isOfTheKit && saysSomething ? Kind::kHit : Kind::kOther;
}

std::vector<Parameter> parametersOf(const Hit& hit) {
  auto parameters = parametersIn(queryOf(hit.url));
  const std::string_view body = hit.body;
  const bool isQuery =
      body.find('=') != std::string::npos && body.find_first_of("{<\n") == std::string::npos;
  if (isQuery) {
    for (auto& parameter : parametersIn(body)) parameters.push_back(std::move(parameter));
  }
  return parameters;
}
