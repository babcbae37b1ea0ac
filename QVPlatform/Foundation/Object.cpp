#include <QVPlatform/Foundation/Object.h>

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

namespace QVPlatform {

Object::~Object() = default;

String Object::className() const {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(typeid(*this).name(), nullptr, nullptr, &status), &std::free);
  if (!name) return String(typeid(*this).name());
  const std::string_view qualified(name.get());
  const std::size_t colon = qualified.rfind(':');
  return String(colon == std::string_view::npos ? qualified : qualified.substr(colon + 1));
}

String Object::description() const {
  char address[32];
  std::snprintf(address, sizeof address, ": %p>", static_cast<const void*>(this));
  return String("<") + className() + String(address);
}

std::shared_ptr<Object> Object::self() {
  if (auto owned = weak_from_this().lock()) return owned;
  return {std::shared_ptr<void>(), this};
}

}  // namespace QVPlatform
