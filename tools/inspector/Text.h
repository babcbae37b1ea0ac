#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What the inspector does with the bytes of a request: they may hold anything.

using Headers = std::vector<std::pair<std::string, std::string>>;

/// Milliseconds since 1970.
using Time = std::int64_t;

Time now();
/// "2026-11-21T20:40:00.123Z"
std::string isoText(Time time);
/// Reads what isoText() writes, and other forms of ISO 8601 with a date, a time and a zone,
/// from 1970 on.
std::optional<Time> timeOfISOText(const std::string& text);
/// "Sat, 21 Nov 2026 20:40:00 GMT"
std::string httpDate(Time time);
std::optional<Time> timeOfHTTPDate(const std::string& text);

/// The whole text as a number; null for anything else, and for one beyond the limit.
std::optional<std::uint64_t> numberIn(std::string_view text, std::uint64_t limit);

bool isUTF8(std::string_view bytes);
/// The bytes themselves when they are UTF-8, else each byte as the character of that code.
std::string textOf(std::string_view bytes);
std::string base64(std::string_view bytes);
std::optional<std::string> bytesOfBase64(std::string_view text);

/// Nullptr when there is no such header; its name in any case.
const std::string* findHeader(const Headers& headers, std::string_view name);

struct Parameter {
  std::string name;
  std::string value;  // decoded, as the name is
};

/// Of a query, or of a body that is written like one.
std::vector<Parameter> parametersIn(std::string_view query);
/// The part of a URL behind its first question mark, without the fragment.
std::string_view queryOf(std::string_view url);
/// The path of an absolute URL; "/" when it has none.
std::string_view pathOf(std::string_view url);
