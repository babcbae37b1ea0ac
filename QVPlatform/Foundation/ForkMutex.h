#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Mutex.h>

#include <memory>

namespace QVPlatform {

/// Keeps the thing, undestroyed, for as long as the process runs.
QVPLATFORM_EXPORT void keepForEver(const void* thing) noexcept;

/// For child handlers, see below: keeps what is the parent's as it is, so that nothing waits for
/// the parent's threads or speaks to others in its name.
template <class T>
void leaveToParent(std::unique_ptr<T> thing) noexcept {
  keepForEver(thing.release());
}

/// A mutex that no other thread holds at the moment of a fork(), so that the child, which has none
/// of those threads, finds it free and what it guards whole.
///
/// For the few long-lived things that a child goes on to use: a fork takes each of them for a
/// moment. So none is made, destroyed or taken while another one is held, and no fork() is made
/// while one is.
class QVPLATFORM_EXPORT ForkMutex : public Mutex {
 public:
  /// Called in the child, with the mutex held, before fork() returns there: puts what `owner` had
  /// of the parent's threads into a state to begin anew from.
  using ChildHandler = void (*)(void* owner);

  explicit ForkMutex(ChildHandler inChild = nullptr, void* owner = nullptr);
  ~ForkMutex();
  ForkMutex(const ForkMutex&) = delete;
  ForkMutex& operator=(const ForkMutex&) = delete;

 private:
  // A fork holds a whole list of mutexes from the first of these to the others.
  static void beforeFork() QV_NO_THREAD_SAFETY_ANALYSIS;
  static void afterForkInParent() QV_NO_THREAD_SAFETY_ANALYSIS;
  static void afterForkInChild() QV_NO_THREAD_SAFETY_ANALYSIS;
  static int watchForks();

  static const int isWatching_;

  const ChildHandler inChild_;
  void* const owner_;
  ForkMutex* previous_ = nullptr;
  ForkMutex* next_ = nullptr;
};

}  // namespace QVPlatform
