#pragma once

namespace QVPlatform {

/// The one object of its type that the process has for as long as it runs: never destroyed, since
/// threads may outlive main. It is made when the library is loaded or, if a static initialiser asks
/// before that, then: made by the first thread that wants it, it would be locked for ever in the
/// child of a fork() that another thread makes at that moment.
template <class T>
class Lasting {
 public:
  static T& object() {
    static T& made = *new T;
    static_cast<void>(isMade_);
    return made;
  }

 private:
  static inline const bool isMade_ = (object(), true);
};

}  // namespace QVPlatform
