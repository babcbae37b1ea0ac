#include <QVPlatform/Archives/Internal/ValueEncoder.h>

#include <QVPlatform/Archives/PropertyList.h>

#include <span>
#include <type_traits>

namespace QVPlatform {
namespace {

std::optional<std::uint32_t> uidOf(const std::vector<Dictionary::Entry>& entries) {
  if (entries.size() != 1 || entries.front().first.view() != "CF$UID") return {};
  const auto* number = std::get_if<std::int64_t>(&entries.front().second.storage());
  if (!number || !std::in_range<std::uint32_t>(*number)) return {};
  return static_cast<std::uint32_t>(*number);
}

}  // namespace

Data ValueEncoder::encode(const Value& value) {
  const auto root = add(value);
  return root ? writer_.finish(*root) : Data();
}

std::optional<ValueEncoder::Reference> ValueEncoder::add(const Value& value) {
  return std::visit(
      [this]<class T>(const T& held) -> std::optional<Reference> {
        if constexpr (std::is_same_v<T, Array> || std::is_same_v<T, Dictionary>) {
          if (depth_ == PropertyList::kMaximumDepth || writer_.isTooLarge()) return {};
          ++depth_;
          const auto reference = add(held);
          --depth_;
          return reference;
        } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, String> ||
                             std::is_same_v<T, Data> || std::is_same_v<T, Date>) {
          return writer_.add(held);
        } else {
          return {};
        }
      },
      value.storage());
}

bool ValueEncoder::push(const Value& value, std::vector<Reference>& stack) {
  // The count bounds what containers that are shared multiply to.
  if (depth_ == 1) count_ = 0;
  if (++count_ > PropertyList::kMaximumCount) return false;
  const auto reference = add(value);
  if (reference) stack.push_back(*reference);
  return reference.has_value();
}

std::optional<ValueEncoder::Reference> ValueEncoder::add(const Array& array) {
  const std::size_t base = values_.size();
  for (const Value& element : array.values()) {
    if (!push(element, values_)) return {};
  }
  const Reference reference = writer_.addArray(std::span(values_).subspan(base));
  values_.resize(base);
  return reference;
}

std::optional<ValueEncoder::Reference> ValueEncoder::add(const Dictionary& dictionary) {
  const auto entries = dictionary.entries();
  if (const auto uid = uidOf(entries); uid && uids_ == UIDs::kAreReferences) {
    return writer_.addUID(*uid);
  }
  const std::size_t keyBase = keys_.size();
  const std::size_t valueBase = values_.size();
  for (const auto& [key, value] : entries) {
    keys_.push_back(writer_.add(key));
    if (!push(value, values_)) return {};
  }
  const Reference reference = writer_.addDictionary(std::span(keys_).subspan(keyBase),
                                                    std::span(values_).subspan(valueBase));
  keys_.resize(keyBase);
  values_.resize(valueBase);
  return reference;
}

}  // namespace QVPlatform
