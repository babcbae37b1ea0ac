#include <QVPlatform/Archives/JSONDocument.h>

#include <QVPlatform/Archives/Internal/JSONStructure.h>
#include <QVPlatform/Archives/Internal/JSONTokens.h>
#include <QVPlatform/Archives/Internal/JSONValues.h>

#include <string>
#include <utility>
#include <vector>

namespace QVPlatform {
namespace {

using JSONTokens::afterSpace;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// A value, and the number of the first container that begins there or behind.
struct Place {
  const char* at = nullptr;
  std::size_t container = 0;
};

/// `token` is a string of the text, quotation marks included.
bool standsFor(std::string_view token, std::string_view key) {
  std::string buffer;
  return JSONTokens::unescaped(token.substr(1, token.size() - 2), buffer) == key;
}

}  // namespace

struct JSONDocument::State {
  explicit State(String source) : text(std::move(source)) {
    if (text.isNull()) {
      error = "There is no text, or it is not UTF-8.";
    } else if (text.view().size() > kMaximumSize) {
      error = "The text is too large.";
    } else {
      check();
    }
  }

  void check() {
    const std::size_t begin = text.view().starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    JSONStructure structure(text, begin, kMaximumDepth);
    error = structure.error();
    containers = structure.takeContainers();
    current.at = afterSpace(text.UTF8String() + begin);
  }

  const char* end() const { return text.UTF8String() + text.view().size(); }

  Place behind(Place value) const {
    if (*value.at != '{' && *value.at != '[') {
      return {JSONTokens::afterScalar(value.at, end()), value.container};
    }
    const auto& container = containers[value.container];
    return {text.UTF8String() + container.end, container.next};
  }

  String text;
  String error;
  std::vector<JSONStructure::Container> containers;
  Place current;
};

JSONDocument::JSONDocument(String text) : state_(std::make_unique<State>(std::move(text))) {}

JSONDocument::~JSONDocument() = default;

String JSONDocument::error() const { return state_->error; }

bool JSONDocument::enterMember(std::string_view key) {
  const Place object = state_->current;
  if (!state_->error.isNull() || *object.at != '{') return false;
  bool isFound = false;
  Place place{afterSpace(object.at + 1), object.container + 1};
  while (*place.at != '}') {
    const char* const name = place.at;
    place.at = JSONTokens::afterString(name, state_->end());
    const bool isKey = standsFor({name, static_cast<std::size_t>(place.at - name)}, key);
    place.at = afterSpace(afterSpace(place.at) + 1);  // the colon
    if (isKey) state_->current = place;
    isFound |= isKey;
    place = state_->behind(place);
    place.at = afterSpace(place.at);
    if (*place.at == ',') place.at = afterSpace(place.at + 1);
  }
  return isFound;
}

Value JSONDocument::value() const {
  if (!state_->error.isNull()) return nullptr;
  const Place& place = state_->current;
  return valueOfJSON(place.at, state_->end(), state_->containers.data() + place.container);
}

}  // namespace QVPlatform
