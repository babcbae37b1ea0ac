#include <QVPlatform/Foundation/Array.h>

#include <QVPlatform/Foundation/Internal/NestedRelease.h>
#include <QVPlatform/Foundation/Mutex.h>
#include <QVPlatform/Foundation/Value.h>

namespace QVPlatform {

struct Array::State {
  explicit State(std::vector<Value> initial) : values(std::move(initial)) {}
  ~State() {
    NestedRelease release;
    for (const Value& value : values) release.keep(value);
    values.clear();
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  Mutex mutex;
  std::vector<Value> values QV_GUARDED_BY(mutex);
};

Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}

Array::Array(std::vector<Value> values) {
  std::erase_if(values, [](const Value& value) { return value.isNil(); });
  state_ = std::make_shared<State>(std::move(values));
}

Array Array::array() { return Array(std::vector<Value>()); }

std::size_t Array::count() const {
  if (isNull()) return 0;
  const Lock lock(state_->mutex);
  return state_->values.size();
}

Value Array::at(std::size_t index) const {
  if (isNull()) return nullptr;
  const Lock lock(state_->mutex);
  return index < state_->values.size() ? state_->values[index] : Value();
}

std::vector<Value> Array::values() const& {
  if (isNull()) return {};
  const Lock lock(state_->mutex);
  return state_->values;
}

std::vector<Value> Array::values() && {
  const auto given = std::move(state_);
  if (!given) return {};
  const Lock lock(given->mutex);
  return given.use_count() > 1 ? given->values : std::move(given->values);
}

void Array::append(Value value) {
  if (value.isNil()) return;
  if (isNull()) *this = array();
  const Lock lock(state_->mutex);
  state_->values.push_back(std::move(value));
}

void Array::removeLast() {
  if (isNull()) return;
  Value removed;  // destroyed after the lock, as it may be any object
  const Lock lock(state_->mutex);
  if (state_->values.empty()) return;
  removed = std::move(state_->values.back());
  state_->values.pop_back();
}

void Array::removeEqual(const Value& value) {
  // Comparing and destroying can reach other containers, this one included: both are done on a
  // copy, outside the lock.
  std::vector<Value> kept = values();
  if (std::erase(kept, value) == 0) return;
  const Lock lock(state_->mutex);
  state_->values.swap(kept);
}

void Array::clear() {
  if (isNull()) return;
  std::vector<Value> dropped;
  const Lock lock(state_->mutex);
  state_->values.swap(dropped);
}

Array Array::copy() const { return isNull() ? Array() : Array(values()); }

}  // namespace QVPlatform
