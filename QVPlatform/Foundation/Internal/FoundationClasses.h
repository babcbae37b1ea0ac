#pragma once

#include <QVPlatform/Foundation/ClassRegistry.h>

#include <unordered_map>

namespace QVPlatform {

/// How to make bare objects of the classes of this room that are archived, by the names of their
/// archives. The registry starts with these, so that they are known however the library is linked.
std::unordered_map<String, ClassRegistry::Factory> foundationClasses();

}  // namespace QVPlatform
