#include <QVPlatform/Archives/JSONDocument.h>

#include <QVPlatform/Archives/Internal/JSONNumbers.h>
#include <QVPlatform/Foundation/Lasting.h>
#include <QVPlatform/Foundation/Null.h>

#include <simdjson.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

using simdjson::dom::element;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// The library's code for the best kind of processor that this one is.
const simdjson::implementation* bestImplementation() {
  const std::string name =
      simdjson::get_available_implementations().detect_best_supported()->name();
#if SIMDJSON_IMPLEMENTATION_ICELAKE
  if (name == "icelake") return new simdjson::icelake::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_HASWELL
  if (name == "haswell") return new simdjson::haswell::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_WESTMERE
  if (name == "westmere") return new simdjson::westmere::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_ARM64
  if (name == "arm64") return new simdjson::arm64::implementation;
#endif
  return new simdjson::fallback::implementation;
}

/// The library's own objects are destroyed when the process exits, under threads that still read.
struct LastingImplementation {
  LastingImplementation() { simdjson::get_active_implementation() = bestImplementation(); }
};

Value valueOf(element source);

Array arrayOf(const simdjson::dom::array& source) {
  std::vector<Value> values;
  values.reserve(source.size());
  for (const element child : source) values.push_back(valueOf(child));
  return Array(std::move(values));
}

Dictionary dictionaryOf(const simdjson::dom::object& source) {
  std::vector<Dictionary::Entry> entries;
  entries.reserve(source.size());
  for (const auto& [key, child] : source) entries.emplace_back(String(key), valueOf(child));
  return Dictionary(std::move(entries));
}

/// Goes down as deep as the text does, which is bounded.
Value valueOf(element source) {
  using simdjson::dom::element_type;
  switch (source.type()) {
    case element_type::OBJECT:
      return dictionaryOf(source.get_object().value_unsafe());
    case element_type::ARRAY:
      return arrayOf(source.get_array().value_unsafe());
    case element_type::STRING:
      return String(source.get_string().value_unsafe());
    case element_type::INT64:
      return source.get_int64().value_unsafe();
    case element_type::UINT64:
      return source.get_uint64().value_unsafe();
    case element_type::DOUBLE:
      return source.get_double().value_unsafe();
    case element_type::BOOL:
      return source.get_bool().value_unsafe();
    case element_type::NULL_VALUE:
      break;
  }
  return Null::null();
}

}  // namespace

struct JSONDocument::State {
  explicit State(const String& text) {
    std::string_view source = text.view();
    if (source.starts_with(kByteOrderMark)) source.remove_prefix(kByteOrderMark.size());
    if (text.isNull()) {
      error = "There is no text, or it is not UTF-8.";
    } else if (source.size() > kMaximumSize) {
      error = "The text is too large.";
    } else {
      read(source);
    }
  }

  void read(std::string_view source) {
    auto status = kAreDecimalsMisread ? simdjson::NUMBER_ERROR : parse(source);
    if (status == simdjson::NUMBER_ERROR) status = parse(textWithNumbersInRange(source));
    if (status == simdjson::MEMALLOC) throw std::bad_alloc();
    if (status != simdjson::SUCCESS) {
      error = simdjson::error_message(status);
    } else if (!current.is_object() && !current.is_array()) {
      error = "The text is neither an object nor an array.";
    }
  }

  simdjson::error_code parse(std::string_view source) {
    Lasting<LastingImplementation>::object();
    if (const auto status = parser.allocate(source.size(), kMaximumDepth)) return status;
    return parser.parse(source.data(), source.size()).get(current);
  }

  String error;
  simdjson::dom::parser parser;
  element current;  // lies in the parser
};

JSONDocument::JSONDocument(const String& text) : state_(std::make_unique<State>(text)) {}

JSONDocument::~JSONDocument() = default;

String JSONDocument::error() const { return state_->error; }

bool JSONDocument::enterMember(std::string_view key) {
  simdjson::dom::object object;
  if (!state_->error.isNull() || state_->current.get(object) != simdjson::SUCCESS) return false;
  bool isFound = false;
  for (const auto& [name, child] : object) {
    if (name != key) continue;
    state_->current = child;
    isFound = true;
  }
  return isFound;
}

Value JSONDocument::value() const {
  return state_->error.isNull() ? valueOf(state_->current) : Value();
}

}  // namespace QVPlatform
