#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Object.h>
#include <QVPlatform/Foundation/String.h>

#include <memory>

namespace QVPlatform {

/// The classes that make themselves known by name: a module registers the name of its main class so
/// that its mere presence in the process can be seen, and a class whose objects are archived
/// registers how to make one.
///
/// Lifetime: works before main (static initialisers of any library, in any order) and until the
/// process is gone; a registered name stays registered. A library that registered a factory must
/// not be unloaded.
/// Threads: every operation may be called from any thread.
class QVPLATFORM_EXPORT ClassRegistry {
 public:
  using Factory = std::shared_ptr<Object> (*)();

  /// Makes the name known. A name registered again keeps its factory unless a new one is given. A
  /// null name is ignored.
  static void registerClass(const String& name, Factory factory = nullptr);
  static bool isRegistered(const String& name);
  /// A new bare object of the class; null when the name is not registered or has no factory. The
  /// factory runs on the calling thread.
  static std::shared_ptr<Object> make(const String& name);
};

/// Registers, when its library is loaded, how to make bare objects of the class under the name.
template <class Class>
class RegisteredClass {
 public:
  explicit RegisteredClass(const String& name) {
    ClassRegistry::registerClass(
        name, []() -> std::shared_ptr<Object> { return std::make_shared<Class>(); });
  }
};

}  // namespace QVPlatform
