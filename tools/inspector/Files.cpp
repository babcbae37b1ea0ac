#include "inspector/Files.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "inspector/Curl.h"
#include "inspector/HAR.h"
#include "inspector/HitJSON.h"

struct Export::Format {
  const char* name;
  const char* mediaType;
  const char* fileName;
  std::string (*head)();
  std::string (*entry)(const Hit&);
  const char* separator;
  std::string (*tail)();
};

namespace {

constexpr std::size_t kBlockSize = 1U << 16;

std::string nothing() { return ""; }
std::string lineBreak() { return "\n"; }

constexpr Export::Format kFormats[] = {
    {"jsonl", "application/x-ndjson", "hits.jsonl", nothing, jsonOf, "\n", lineBreak},
    {"har", "application/json", "hits.har", harHead, harEntryOf, ",\n", harTail},
    {"curl", "text/x-shellscript", "hits.sh", nothing, curlOf, "\n\n", lineBreak},
};

void readLines(const std::string& text, const std::function<std::uint64_t(Hit)>& add,
               Store& store) {
  std::unordered_map<std::uint64_t, std::uint64_t> sequences;  // in the file to those in the store
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    const auto json =
        nlohmann::json::parse(text.begin() + static_cast<std::ptrdiff_t>(begin),
                              text.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
    if (!json.is_object()) continue;
    const auto sequence = json.find("sequence");
    const bool isKnown = sequence != json.end() && sequence->is_number_unsigned();
    if (auto hit = hitOf(json)) {
      const std::uint64_t place = add(std::move(*hit));
      if (isKnown) sequences[*sequence] = place;
    } else if (isKnown && sequences.contains(*sequence)) {
      const std::uint64_t place = sequences[*sequence];
      if (const Hit* const known = store.find(place)) {
        Hit changed = *known;
        apply(json, changed);
        store.setOutcome(place, changed.outcome, changed.status, changed.elapsed);
        store.setPinned(place, changed.isPinned);
      }
    }
  }
}

}  // namespace

std::optional<std::vector<Range>> rangesIn(std::string_view text) {
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max() - 1;
  if (text.empty()) return {{{0, kMost}}};
  std::vector<Range> ranges;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find(','));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    const std::size_t sign = std::min(part.find('-'), part.size());
    const auto first = numberIn(part.substr(0, sign), kMost);
    const auto last = sign == part.size() ? first : numberIn(part.substr(sign + 1), kMost);
    if (!first || !last) return std::nullopt;
    ranges.push_back({*first, *last});
  }
  return ranges;
}

const Export::Format* Export::formatNamed(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                         [&](const Format& each) { return each.name == name; });
  return found == std::end(kFormats) ? nullptr : found;
}

const char* Export::mediaTypeOf(const Format& format) { return format.mediaType; }
const char* Export::fileNameOf(const Format& format) { return format.fileName; }

const Hit* Export::nextHit() {
  for (; range_ < ranges_.size(); ++range_) {
    const Hit* const hit = store_.findFrom(std::max(next_, ranges_[range_].first));
    if (hit != nullptr && hit->sequence <= ranges_[range_].last) {
      next_ = hit->sequence + 1;
      return hit;
    }
  }
  return nullptr;
}

std::string Export::next() {
  std::string block;
  if (isAtEnd_) return block;
  while (block.size() < kBlockSize) {
    const Hit* const hit = nextHit();
    if (!std::exchange(isBegun_, true)) {
      block += format_.head();
    } else if (hit != nullptr) {
      block += format_.separator;
    }
    isAtEnd_ = hit == nullptr;
    if (isAtEnd_) return block + format_.tail();
    block += format_.entry(*hit);
  }
  return block;
}

std::optional<std::size_t> import(const std::string& text, const std::string& name, Store& store) {
  std::size_t count = 0;
  const auto add = [&](Hit hit) {
    hit.source = name;
    ++count;
    return store.add(std::move(hit));
  };
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return 0;
  if (text[begin] != '{') {
    const bool isRead = readCurl(text, add);
    return isRead && count > 0 ? std::optional(count) : std::nullopt;
  }
  const std::size_t member = text.find_first_not_of(" \t\r\n", begin + 1);
  if (member != std::string::npos && text.compare(member, 5, "\"log\"") == 0) {
    return readHAR(text, add) ? std::optional(count) : std::nullopt;
  }
  readLines(text, add, store);
  return count > 0 ? std::optional(count) : std::nullopt;
}
