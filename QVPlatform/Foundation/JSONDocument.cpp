#include <QVPlatform/Foundation/Internal/JSONNumbers.h>
#include <QVPlatform/Foundation/JSONDocument.h>
#include <QVPlatform/Foundation/Null.h>

#include <simdjson.h>

#include <atomic>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

using simdjson::dom::element;
using simdjson::dom::parser;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Parsers own buffers of about fourteen bytes for each byte of the largest text that they read, so
/// one with buffers of a common size waits for the next text, and larger ones go.
class ParserPool {
 public:
  static std::unique_ptr<parser> take() {
    std::unique_ptr<parser> taken(idle_.exchange(nullptr));
    return taken ? std::move(taken) : std::make_unique<parser>();
  }
  static void giveBack(std::unique_ptr<parser> parser) {
    if (parser->capacity() > kRetainedCapacity) return;
    parser.reset(idle_.exchange(parser.release()));
  }

 private:
  static constexpr std::size_t kRetainedCapacity = std::size_t{1} << 20;
  static inline constinit std::atomic<parser*> idle_{nullptr};
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
  explicit State(std::string_view text) {
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    auto status = parse(text);
    if (status == simdjson::NUMBER_ERROR) status = parse(textWithNumbersInRange(text));
    if (status) {
      error = String(simdjson::error_message(status));
    } else if (!current.is_object() && !current.is_array()) {
      error = "The text is neither an object nor an array.";
    }
  }
  ~State() { ParserPool::giveBack(std::move(parser)); }

  simdjson::error_code parse(std::string_view text) {
    if (text.size() > kMaximumSize) return simdjson::CAPACITY;
    if (text.empty()) return simdjson::EMPTY;  // the parser would copy from its null address
    if (const auto status = parser->allocate(parser->capacity(), kMaximumDepth)) return status;
    return parser->parse(text.data(), text.size()).get(current);
  }

  std::unique_ptr<simdjson::dom::parser> parser = ParserPool::take();
  element current;  // lies in the parser
  String error;
};

JSONDocument::JSONDocument(std::string_view text) : state_(std::make_unique<State>(text)) {}

JSONDocument::~JSONDocument() = default;

String JSONDocument::error() const { return state_->error; }

bool JSONDocument::enterMember(std::string_view key) {
  simdjson::dom::object object;
  if (!state_->error.isNull() || state_->current.get(object)) return false;
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
