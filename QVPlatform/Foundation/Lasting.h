#pragma once

#include <cstddef>
#include <new>

namespace QVPlatform {

/// The one object of its type that the process has for as long as it runs: never destroyed, since
/// threads may outlive main. It is made when the library is loaded or, if a static initialiser asks
/// before that, then: made by the first thread that wants it, it would be locked for ever in the
/// child of a fork() that another thread makes at that moment. It lies in static memory, so that
/// nothing but its own members can want for memory.
///
/// What has to wait until it is wanted, because it depends on what the host sets until then, is no
/// case for this: it is a static reference to a new object, in the function that answers it.
template <class T>
class Lasting {
 public:
  static T& object() {
    alignas(T) static std::byte memory[sizeof(T)];
    static T& made = *new (memory) T;
    static_cast<void>(isMade_);
    return made;
  }

 private:
  static inline const bool isMade_ = (object(), true);
};

}  // namespace QVPlatform
