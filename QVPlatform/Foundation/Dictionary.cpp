#include <QVPlatform/Foundation/Value.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace QVPlatform {
namespace {

using Entries = std::vector<Dictionary::Entry>;

bool keyIsLess(const Dictionary::Entry& entry, const String& key) { return entry.first < key; }

bool holdsKey(const Entries& entries, Entries::const_iterator place, const String& key) {
  return place != entries.end() && place->first == key;
}

/// Sorts by key; of entries with one key only the last one stays.
Entries sortedByKey(Entries entries) {
  std::erase_if(entries, [](const Dictionary::Entry& entry) {
    return entry.first.isNull() || entry.second.isNil();
  });
  // Entries that were read from a file were mostly written in order.
  const auto isOutOfOrder = [](const auto& a, const auto& b) { return !(a.first < b.first); };
  if (std::adjacent_find(entries.begin(), entries.end(), isOutOfOrder) == entries.end()) {
    return entries;
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  const auto sameKey = [](const auto& a, const auto& b) { return a.first == b.first; };
  // std::unique keeps the first of a run, so the runs are looked at from behind.
  const auto kept = std::unique(entries.rbegin(), entries.rend(), sameKey).base();
  entries.erase(entries.begin(), kept);
  return entries;
}

}  // namespace

struct Dictionary::Storage {
  explicit Storage(Entries initial) : entries(std::move(initial)) {}

  Entries::iterator find(const String& key) {
    return std::lower_bound(entries.begin(), entries.end(), key, keyIsLess);
  }

  std::mutex mutex;
  Entries entries;  // sorted by key
};

Dictionary::Dictionary(std::initializer_list<Entry> entries) : Dictionary(Entries(entries)) {}

Dictionary::Dictionary(std::vector<Entry> entries)
    : storage_(std::make_shared<Storage>(sortedByKey(std::move(entries)))) {}

Dictionary Dictionary::dictionary() { return Dictionary(Entries()); }

std::size_t Dictionary::count() const {
  if (isNull()) return 0;
  const std::lock_guard lock(storage_->mutex);
  return storage_->entries.size();
}

Value Dictionary::get(const String& key) const {
  if (isNull()) return nullptr;
  const std::lock_guard lock(storage_->mutex);
  const auto place = storage_->find(key);
  return holdsKey(storage_->entries, place, key) ? place->second : Value();
}

void Dictionary::set(String key, Value value) {
  if (value.isNil()) return remove(key);
  if (isNull() || key.isNull()) return;
  // The replaced value leaves the lock with `value`: destroying it can reach this dictionary again.
  const std::lock_guard lock(storage_->mutex);
  const auto place = storage_->find(key);
  if (holdsKey(storage_->entries, place, key)) {
    std::swap(place->second, value);
  } else {
    storage_->entries.emplace(place, std::move(key), std::move(value));
  }
}

void Dictionary::remove(const String& key) {
  if (isNull()) return;
  Value removed;
  const std::lock_guard lock(storage_->mutex);
  const auto place = storage_->find(key);
  if (!holdsKey(storage_->entries, place, key)) return;
  std::swap(place->second, removed);
  storage_->entries.erase(place);
}

void Dictionary::clear() {
  if (isNull()) return;
  Entries dropped;
  const std::lock_guard lock(storage_->mutex);
  storage_->entries.swap(dropped);
}

std::vector<String> Dictionary::keys() const {
  std::vector<String> keys;
  for (auto& entry : entries()) keys.push_back(std::move(entry.first));
  return keys;
}

Entries Dictionary::entries() const {
  if (isNull()) return {};
  const std::lock_guard lock(storage_->mutex);
  return storage_->entries;
}

Dictionary Dictionary::copy() const& {
  if (isNull()) return nullptr;
  // A copy is mostly made to be added to: room for what a request gains on its way.
  constexpr std::size_t kRoom = 3;
  Dictionary other = dictionary();
  const std::lock_guard lock(storage_->mutex);
  Entries& entries = other.storage_->entries;
  entries.reserve(storage_->entries.size() + kRoom);
  entries.assign(storage_->entries.begin(), storage_->entries.end());
  return other;
}

Dictionary Dictionary::copy() && {
  return storage_.use_count() > 1 ? std::as_const(*this).copy() : std::move(*this);
}

}  // namespace QVPlatform
