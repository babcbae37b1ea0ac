#include <QVCore/QVDynamicStore.h>

#include <QVPlatform/Archives/KeyedArchiver.h>
#include <QVPlatform/Archives/KeyedUnarchiver.h>
#include <QVPlatform/Foundation/ClassRegistry.h>

#include <string>
#include <utility>
#include <vector>

using QVPlatform::Array;
using QVPlatform::Dictionary;
using QVPlatform::Lock;
using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)
using QVPlatform::stringWithFormat;
using QVPlatform::Value;

namespace {

constexpr String kDynamicStore = "dynamicStore"_string;
constexpr String kOrderedKeys = "orderedKeys"_string;

const QVPlatform::RegisteredClass<QVDynamicStore> registeredStore{"QVDynamicStore"};

}  // namespace

std::shared_ptr<QVDynamicStore> QVDynamicStore::init() {
  setDynamicStore(Dictionary::dictionary());
  setOrderedKeys(Array::array());
  return std::static_pointer_cast<QVDynamicStore>(self());
}

QVDynamicStore::Content QVDynamicStore::content() const {
  const Lock lock(mutex_);
  return {dynamicStore_.copy(), orderedKeys_.copy()};
}

void QVDynamicStore::addData(const std::shared_ptr<QVDynamicStore>& other) {
  if (!other) return;
  // One lock after the other: two stores may be merged into each other at once.
  const auto [values, keys] = other->content();
  std::vector<Value> replaced;  // destroyed after the lock, as they may be any objects
  replaced.reserve(keys.count());
  const Lock lock(mutex_);
  for (const Value& key : keys.values()) {
    replaced.push_back(replace(key.string(), values.get(key.string())));
  }
}

void QVDynamicStore::addDataWithValue(const String& key, const Value& value) {
  Value earlier;  // destroyed after the lock, as above
  const Lock lock(mutex_);
  earlier = replace(key, value);
}

Value QVDynamicStore::replace(const String& key, const Value& value) {
  if (key.isNull() || value.isNil()) return nullptr;
  Value earlier = dynamicStore_.get(key);
  if (!earlier.isNil()) {
    dynamicStore_.set(key, value);
    return earlier;
  }
  // A container that a bare store lacks stays missing. Of what is done here and undone when memory
  // runs out, only what is done to the keys takes none to undo.
  if (!orderedKeys_.isNull()) orderedKeys_.append(key);
  if (dynamicStore_.isNull()) return nullptr;
  try {
    dynamicStore_.set(key, value);
  } catch (...) {
    orderedKeys_.removeLast();
    throw;
  }
  return nullptr;
}

Value QVDynamicStore::getData(const String& key) const { return dynamicStore().get(key); }

Value QVDynamicStore::removeData(const String& key) {
  if (key.isNull()) return nullptr;
  Value removed;
  const Lock lock(mutex_);
  removed = dynamicStore_.get(key);
  dynamicStore_.remove(key);
  orderedKeys_.removeEqual(key);
  return removed;
}

void QVDynamicStore::clearData() {
  Dictionary dropped;  // destroyed after the lock, as its values may be any objects
  const Lock lock(mutex_);
  dropped = dynamicStore_.copy();
  dynamicStore_.clear();
  orderedKeys_.clear();
}

void QVDynamicStore::encodeWithCoder(QVPlatform::KeyedArchiver& coder) const {
  const auto [values, keys] = content();
  coder.encodeObjectForKey(values, kDynamicStore);
  coder.encodeObjectForKey(keys, kOrderedKeys);
}

void QVDynamicStore::initWithCoder(QVPlatform::KeyedUnarchiver& coder) {
  setDynamicStore(coder.decodeObjectForKey(kDynamicStore).dictionary());
  setOrderedKeys(coder.decodeObjectForKey(kOrderedKeys).array());
}

String QVDynamicStore::debugDescription() const {
  std::string lines;
  const auto [values, keys] = content();
  for (const Value& key : keys.values()) {
    lines.append(stringWithFormat("%@ : %@\n", {key, values.get(key.string())}).view());
  }
  return String(lines);
}

Dictionary QVDynamicStore::dynamicStore() const {
  const Lock lock(mutex_);
  return dynamicStore_;
}

void QVDynamicStore::setDynamicStore(Dictionary store) {
  const Lock lock(mutex_);
  std::swap(dynamicStore_, store);
}

Array QVDynamicStore::orderedKeys() const {
  const Lock lock(mutex_);
  return orderedKeys_;
}

void QVDynamicStore::setOrderedKeys(Array keys) {
  const Lock lock(mutex_);
  std::swap(orderedKeys_, keys);
}
