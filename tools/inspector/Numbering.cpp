#include "inspector/Numbering.h"

#include <algorithm>
#include <limits>

std::string Numbering::streamOf(const Hit& hit) {
  return hit.source + '\n' + hit.url.substr(0, hit.url.find_first_of("?#"));
}

std::optional<std::uint64_t> Numbering::numberOf(const Hit& hit) const {
  const auto parameters = parametersOf(hit);
  for (const auto& name : names_) {
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const Parameter& each) { return each.name == name; });
    if (found == parameters.end()) continue;
    return numberIn(found->value, std::numeric_limits<std::uint64_t>::max());
  }
  return std::nullopt;
}

void Numbering::mark(Hit& hit) {
  hit.number = numberOf(hit);
  hit.repeats = 0;
  hit.isOutOfOrder = false;
  if (!hit.number) return;
  Stream& stream = streams_[streamOf(hit)];
  const auto [place, isNew] = stream.latest.emplace(*hit.number, hit.sequence);
  if (!isNew) hit.repeats = std::exchange(place->second, hit.sequence);
  hit.isOutOfOrder = isNew && *hit.number < stream.highest;
  stream.highest = std::max(stream.highest, *hit.number);
}

void Numbering::forget(const Hit& hit) {
  if (!hit.number) return;
  const auto stream = streams_.find(streamOf(hit));
  if (stream == streams_.end()) return;
  const auto place = stream->second.latest.find(*hit.number);
  if (place == stream->second.latest.end() || place->second != hit.sequence) return;
  stream->second.latest.erase(place);
  if (stream->second.latest.empty()) streams_.erase(stream);
}
