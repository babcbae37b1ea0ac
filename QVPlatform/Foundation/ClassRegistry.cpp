#include <QVPlatform/Foundation/ClassRegistry.h>

#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Lasting.h>

#include <unordered_map>

namespace QVPlatform {
namespace {

struct Registry {
  ForkMutex mutex;
  std::unordered_map<String, ClassRegistry::Factory> factories QV_GUARDED_BY(mutex);
};

Registry& registry() { return Lasting<Registry>::object(); }

}  // namespace

void ClassRegistry::registerClass(const String& name, Factory factory) {
  if (name.isNull()) return;
  const Lock lock(registry().mutex);
  Factory& known = registry().factories[name];
  if (factory) known = factory;
}

bool ClassRegistry::isRegistered(const String& name) {
  const Lock lock(registry().mutex);
  return registry().factories.contains(name);
}

std::shared_ptr<Object> ClassRegistry::make(const String& name) {
  Factory factory = nullptr;
  {
    const Lock lock(registry().mutex);
    const auto place = registry().factories.find(name);
    if (place != registry().factories.end()) factory = place->second;
  }
  return factory ? factory() : nullptr;
}

}  // namespace QVPlatform
