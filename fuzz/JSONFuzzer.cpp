#include "JSONFuzzer.h"

#include <QVPlatform/Foundation/Null.h>

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using QVPlatform::Array;
using QVPlatform::Dictionary;
using QVPlatform::JSONDocument;
using QVPlatform::JSONSerialization;
using QVPlatform::String;
using QVPlatform::Value;

Value valueOf(const nlohmann::json& json) {
  if (json.is_object()) {
    std::vector<Dictionary::Entry> entries;
    for (const auto& [key, member] : json.items()) entries.emplace_back(key, valueOf(member));
    return Dictionary(std::move(entries));
  }
  if (json.is_array()) {
    std::vector<Value> values;
    for (const auto& element : json) values.push_back(valueOf(element));
    return Array(std::move(values));
  }
  if (json.is_string()) return json.get_ref<const std::string&>();
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_unsigned()) return json.get<std::uint64_t>();
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number_float()) return json.get<double>();
  return QVPlatform::Null::null();
}

std::size_t depthOf(const nlohmann::json& json) {
  std::size_t depth = 0;
  if (!json.is_structured()) return depth;
  for (const auto& element : json) depth = std::max(depth, depthOf(element));
  return depth + 1;
}

/// Nil for what is not an object or an array, or too deep; nothing for what the other parser
/// understands in a way of its own: it stops at a zero byte, and refuses numbers beyond double.
std::optional<Value> valueByOtherParser(std::string_view text) {
  if (text.find('\0') != text.npos) return std::nullopt;
  try {
    const auto json = nlohmann::json::parse(text);
    const std::size_t depth = depthOf(json);
    return depth > 0 && depth <= JSONDocument::kMaximumDepth ? valueOf(json) : Value();
  } catch (const nlohmann::json::out_of_range&) {
    return std::nullopt;
  } catch (const nlohmann::json::exception&) {
    return Value();
  }
}

/// Input as for readJSON().
void compareWithOtherParser(std::string_view input) {
  QVFuzz::takeField(input);
  const auto expected = valueByOtherParser(input);
  if (expected && JSONSerialization::JSONObjectWithText(String(input)) != *expected) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(bytes), size);
  QVFuzz::readJSON(input);
  compareWithOtherParser(input);
  return 0;
}
