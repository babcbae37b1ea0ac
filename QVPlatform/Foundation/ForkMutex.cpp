#include <QVPlatform/Foundation/ForkMutex.h>

#include <QVPlatform/Foundation/Lasting.h>

#include <pthread.h>

#include <new>
#include <vector>

namespace QVPlatform {
namespace {

constinit Mutex listMutex;  // taken before the mutexes of the list
constinit ForkMutex* first QV_GUARDED_BY(listMutex) = nullptr;

}  // namespace

void keepForEver(const void* thing) noexcept try {
  // Where a search for leaks finds them.
  Lasting<std::vector<const void*>>::object().push_back(thing);
} catch (const std::bad_alloc&) {
  // It stays, all the same.
}

ForkMutex::ForkMutex(ChildHandler inChild, void* owner) : inChild_(inChild), owner_(owner) {
  const Lock lock(listMutex);
  next_ = first;
  if (next_) next_->previous_ = this;
  first = this;
}

ForkMutex::~ForkMutex() {
  const Lock lock(listMutex);
  (previous_ ? previous_->next_ : first) = next_;
  if (next_) next_->previous_ = previous_;
}

void ForkMutex::beforeFork() {
  listMutex.lock();
  for (ForkMutex* mutex = first; mutex; mutex = mutex->next_) mutex->lock();
}

void ForkMutex::afterForkInParent() {
  for (ForkMutex* mutex = first; mutex; mutex = mutex->next_) mutex->unlock();
  listMutex.unlock();
}

void ForkMutex::afterForkInChild() {
  for (ForkMutex* mutex = first; mutex; mutex = mutex->next_) {
    if (mutex->inChild_) mutex->inChild_(mutex->owner_);
  }
  afterForkInParent();
}

int ForkMutex::watchForks() {
  return pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

/// From the moment that the library is loaded.
const int ForkMutex::isWatching_ = watchForks();

}  // namespace QVPlatform
