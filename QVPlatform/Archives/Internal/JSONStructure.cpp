#include <QVPlatform/Archives/Internal/JSONStructure.h>

#include <QVPlatform/Archives/Internal/JSONTokens.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

using JSONTokens::afterSpace;

JSONStructure::JSONStructure(const String& text, std::size_t begin, std::size_t maximumDepth)
    : text_(text.view().data()), end_(text_ + text.view().size()), remainingDepth_(maximumDepth) {
  const char* at = afterSpace(text_ + begin);
  if (*at != '{' && *at != '[') {
    fail(at, "neither an object nor an array");
    return;
  }
  at = afterContainer(at);
  if (at) at = afterSpace(at);
  if (at && at != end_) fail(at, "something behind the end");
}

const char* JSONStructure::afterContainer(const char* at) {
  if (remainingDepth_-- == 0) return fail(at, "too many containers in containers");
  const std::size_t number = containers_.size();
  containers_.emplace_back();
  const bool isObject = *at == '{';
  const char last = isObject ? '}' : ']';
  at = afterSpace(at + 1);
  std::uint32_t count = 0;
  for (bool isMore = *at != last; isMore; ++count) {
    if (isObject && !(at = afterKey(at))) return nullptr;
    if (!(at = afterValue(at))) return nullptr;
    at = afterSpace(at);
    isMore = *at == ',';
    if (isMore) at = afterSpace(at + 1);
  }
  if (*at != last) return fail(at, "neither a comma nor the end of the container");
  ++remainingDepth_;
  containers_[number] = {static_cast<std::uint32_t>(at + 1 - text_),
                         static_cast<std::uint32_t>(containers_.size()), count};
  return at + 1;
}

const char* JSONStructure::afterKey(const char* at) {
  const char* key = JSONTokens::afterString(at, end_);
  if (!key) return fail(at, "not a key");
  key = afterSpace(key);
  return *key == ':' ? afterSpace(key + 1) : fail(key, "no colon behind a key");
}

const char* JSONStructure::afterValue(const char* at) {
  if (*at == '{' || *at == '[') return afterContainer(at);
  const char* const end = JSONTokens::afterScalar(at, end_);
  return end ? end : fail(at, "not a value");
}

const char* JSONStructure::fail(const char* at, const char* reason) {
  error_ = stringWithFormat("Not JSON at byte %@: %@.", {at - text_, reason});
  return nullptr;
}

}  // namespace QVPlatform
