#pragma once

#include <condition_variable>
#include <mutex>

// Which mutex a variable needs, and which one a function's caller holds: clang checks it
// (-Wthread-safety), other compilers see nothing of it.
#ifdef __clang__
#define QV_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define QV_THREAD_SAFETY(attribute)
#endif

/// Of a variable: it is read and changed only while this mutex is held.
#define QV_GUARDED_BY(mutex) QV_THREAD_SAFETY(guarded_by(mutex))
/// Of a function: its caller holds this mutex, before and after.
#define QV_REQUIRES(mutex) QV_THREAD_SAFETY(requires_capability(mutex))
/// Of a function that does what the checker cannot follow; a comment says what.
#define QV_NO_THREAD_SAFETY_ANALYSIS QV_THREAD_SAFETY(no_thread_safety_analysis)

namespace QVPlatform {

/// A std::mutex that the checker knows; to be taken with Lock.
class QV_THREAD_SAFETY(capability("mutex")) Mutex {
 public:
  void lock() QV_THREAD_SAFETY(acquire_capability()) { mutex_.lock(); }
  void unlock() QV_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }
  /// Does nothing but tell the checker, where it cannot see it, that the caller holds the mutex.
  void assumeHeld() const QV_THREAD_SAFETY(assert_capability(this)) {}

 private:
  friend class Lock;
  std::mutex mutex_;
};

/// Holds the mutex until the end of the scope.
class QV_THREAD_SAFETY(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) QV_THREAD_SAFETY(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  ~Lock() QV_THREAD_SAFETY(release_capability()) = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  /// As the condition's wait(): releases the mutex meanwhile. What was waited for is looked at in a
  /// loop around this, where the checker sees that the mutex is held.
  void wait(std::condition_variable& condition) { condition.wait(lock_); }
  template <class Time>
  void waitUntil(std::condition_variable& condition, const Time& time) {
    condition.wait_until(lock_, time);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

/// Releases a mutex that is held until the end of the scope.
class QV_THREAD_SAFETY(scoped_lockable) Unlocked {
 public:
  explicit Unlocked(Mutex& mutex) QV_THREAD_SAFETY(release_capability(mutex)) : mutex_(mutex) {
    mutex_.unlock();
  }
  ~Unlocked() QV_THREAD_SAFETY(release_capability()) { mutex_.lock(); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace QVPlatform
