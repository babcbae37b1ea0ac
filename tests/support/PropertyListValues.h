#pragma once

#include <bit>
#include "Test.h"

namespace QVTest {

template <class Number>
void addLimits(std::vector<QVPlatform::Value>& values) {
  using Limits = std::numeric_limits<Number>;
  for (const std::int64_t small : {0, 1, 127, 128, 255, 256, 65535, 65536, 0x7FFFFFFF}) {
    values.emplace_back(static_cast<Number>(small));
  }
  if (Limits::is_signed) values.emplace_back(static_cast<Number>(-1));
  for (const Number end : {Limits::min(), Limits::max()}) values.emplace_back(end);
}

/// One value at least of everything that a property list can hold, and of every way to hold it.
inline std::vector<QVPlatform::Value> propertyListValues() {
  using namespace QVPlatform;
  std::vector<Value> values{true, false};
  addLimits<std::int32_t>(values);
  addLimits<std::uint32_t>(values);
  addLimits<std::int64_t>(values);
  addLimits<std::uint64_t>(values);
  using Real = std::numeric_limits<double>;
  for (const double real :
       {0.0, -0.0, 1.0, 0.1, -1e300, Real::denorm_min(), Real::infinity(), Real::quiet_NaN()}) {
    values.emplace_back(real);
  }
  for (const std::size_t length : {0U, 1U, 14U, 15U, 255U, 256U, 70000U}) {
    values.emplace_back(String(std::string(length, 'x')));
    values.emplace_back(Data(std::string(length, '\xff')));
    std::string accented;
    for (std::size_t i = 0; i < length; ++i) accented += "\u00e9";
    values.emplace_back(String(accented));
  }
  for (const char* text : {"$null", "\u20ac", "\U0001F600", "\U0010FFFF", "a<b>&\"c'", "]]>"}) {
    values.emplace_back(text);
  }
  values.emplace_back(String(std::string_view("a\0b", 3)));
  for (const double seconds : {0.0, 978307200.0, 1763700000.123456, -62135769600.0, 4e12}) {
    values.emplace_back(Date{seconds});
  }
  values.emplace_back(Array::array());
  values.emplace_back(Dictionary::dictionary());
  values.emplace_back(Array({1, "two", Array({3.0, Dictionary({{"", 4U}})})}));
  values.emplace_back(
      Dictionary({{"$class", "a"}, {"NS.keys", Array({false})}, {"\u00e9", Date{1}}}));
  return values;
}

/// The value inside that many arrays.
inline QVPlatform::Value nested(QVPlatform::Value value, std::size_t depth) {
  for (std::size_t i = 0; i < depth; ++i) value = QVPlatform::Array({value});
  return value;
}

/// How many arrays the value is inside of.
inline std::size_t depthOf(QVPlatform::Value value) {
  std::size_t depth = 0;
  for (; !value.array().isNull(); ++depth) value = value.array().at(0);
  return depth;
}

/// Equal in everything, kind of number and sign of zero included.
inline bool identical(const QVPlatform::Value& a, const QVPlatform::Value& b) {
  const auto* real = std::get_if<double>(&a.storage());
  if (a.storage().index() != b.storage().index() || !real) {
    return a.storage().index() == b.storage().index() && a == b;
  }
  return std::bit_cast<std::uint64_t>(*real) ==
         std::bit_cast<std::uint64_t>(std::get<double>(b.storage()));
}

/// Everything comes back as it was from where that takes it, by itself and within containers.
inline void expectToComeBack(const std::function<QVPlatform::Value(QVPlatform::Value)>& through) {
  for (const auto& value : propertyListValues()) {
    using namespace QVPlatform;
    const std::string text(value.description().view().substr(0, 100));
    EXPECT_TRUE(identical(through(value), value)) << text;
    const Value read = through(Dictionary({{"key", Array({value, "next"})}}));
    EXPECT_TRUE(identical(read.dictionary().get("key").array().at(0), value)) << text;
  }
}

}  // namespace QVTest
