#include <QVPlatform/Foundation/Internal/NestedRelease.h>
#include <QVPlatform/Foundation/Value.h>

#include <mutex>

namespace QVPlatform {

struct Array::Storage {
  explicit Storage(std::vector<Value> initial) : values(std::move(initial)) {}
  ~Storage() {
    NestedRelease release;
    for (const Value& value : values) release.keep(value);
    values.clear();
  }
  Storage(const Storage&) = delete;
  Storage& operator=(const Storage&) = delete;

  std::mutex mutex;
  std::vector<Value> values;
};

Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}

Array::Array(std::vector<Value> values) {
  std::erase_if(values, [](const Value& value) { return value.isNil(); });
  storage_ = std::make_shared<Storage>(std::move(values));
}

Array Array::array() { return Array(std::vector<Value>()); }

std::size_t Array::count() const {
  if (isNull()) return 0;
  const std::lock_guard lock(storage_->mutex);
  return storage_->values.size();
}

Value Array::at(std::size_t index) const {
  if (isNull()) return nullptr;
  const std::lock_guard lock(storage_->mutex);
  return index < storage_->values.size() ? storage_->values[index] : Value();
}

std::vector<Value> Array::values() const {
  if (isNull()) return {};
  const std::lock_guard lock(storage_->mutex);
  return storage_->values;
}

void Array::append(Value value) {
  if (isNull() || value.isNil()) return;
  const std::lock_guard lock(storage_->mutex);
  storage_->values.push_back(std::move(value));
}

void Array::removeLast() {
  if (isNull()) return;
  Value removed;  // destroyed after the lock, as it may be any object
  const std::lock_guard lock(storage_->mutex);
  if (storage_->values.empty()) return;
  removed = std::move(storage_->values.back());
  storage_->values.pop_back();
}

void Array::removeEqual(const Value& value) {
  // Comparing and destroying can reach other containers, this one included: both are done on a
  // copy, outside the lock.
  std::vector<Value> kept = values();
  if (std::erase(kept, value) == 0) return;
  const std::lock_guard lock(storage_->mutex);
  storage_->values.swap(kept);
}

void Array::clear() {
  if (isNull()) return;
  std::vector<Value> dropped;
  const std::lock_guard lock(storage_->mutex);
  storage_->values.swap(dropped);
}

Array Array::copy() const { return isNull() ? Array() : Array(values()); }

}  // namespace QVPlatform
