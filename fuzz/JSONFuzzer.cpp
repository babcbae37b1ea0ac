#include "JSONFuzzer.h"

#include <QVPlatform/Foundation/Null.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace {

using QVPlatform::Array;
using QVPlatform::Dictionary;
using QVPlatform::JSONDocument;
using QVPlatform::JSONSerialization;
using QVPlatform::String;
using QVPlatform::Value;

/// At any depth; the equality of values looks only so deep.
bool isSame(const Value& value, const nlohmann::json& other) {
  if (other.is_object()) {
    const Dictionary members = value.dictionary();
    return !members.isNull() && members.count() == other.size() &&
           std::all_of(other.items().begin(), other.items().end(), [&](const auto& member) {
             return isSame(members.get(member.key()), member.value());
           });
  }
  if (other.is_array()) {
    const Array elements = value.array();
    if (elements.isNull() || elements.count() != other.size()) return false;
    for (std::size_t i = 0; i < other.size(); ++i) {
      if (!isSame(elements.at(i), other[i])) return false;
    }
    return true;
  }
  if (other.is_string()) return value == Value(other.get_ref<const std::string&>());
  if (other.is_boolean()) return value == Value(other.get<bool>());
  if (other.is_number_unsigned()) return value == Value(other.get<std::uint64_t>());
  if (other.is_number_integer()) return value == Value(other.get<std::int64_t>());
  if (other.is_number_float()) return value == Value(other.get<double>());
  return value == Value(QVPlatform::Null::null());
}

std::size_t depthOf(const nlohmann::json& json) {
  std::size_t depth = 0;
  if (!json.is_structured()) return depth;
  for (const auto& element : json) depth = std::max(depth, depthOf(element));
  return depth + 1;
}

/// Input as for readJSON(). The other parser stops at a zero byte and refuses numbers beyond
/// double, so that it cannot tell about these.
void compareWithOtherParser(std::string_view input) {
  QVFuzz::takeField(input);
  if (input.find('\0') != input.npos) return;
  const Value value = JSONSerialization::JSONObjectWithText(String(input));
  try {
    const auto other = nlohmann::json::parse(input);
    const std::size_t depth = depthOf(other);
    const bool isExpected = depth > 0 && depth <= JSONDocument::kMaximumDepth;
    if (isExpected ? !isSame(value, other) : !value.isNil()) std::abort();
  } catch (const nlohmann::json::out_of_range&) {
  } catch (const nlohmann::json::exception&) {
    if (!value.isNil()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(bytes), size);
  QVFuzz::readJSON(input);
  compareWithOtherParser(input);
  return 0;
}
