#include "tests/faults/Fault.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

// The functions of the C library that take memory, by the names that it keeps for itself. dlsym(),
// which finds the others, may take some.
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT
void* __libc_realloc(void* memory, std::size_t size);            // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT
}

namespace {

// Called from before the first constructor: all of this is there as soon as it is mapped.
constinit std::atomic<bool> isArmed{false};
constinit std::atomic<bool> hasFailed{false};
constinit std::atomic<long> counts[kCallCount];
constinit Fault armed{};
// Of the first model, which takes no memory in a new thread.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool isThreadExempt = false;

/// What this call is to fail with; 0 when it is to succeed.
int errorOf(Call call) {
  if (!isArmed.load(std::memory_order_acquire) || isThreadExempt) return 0;
  const long place = counts[static_cast<int>(call)]++;
  const bool fails =
      call == armed.call && (armed.isLasting ? place >= armed.after : place == armed.after);
  if (!fails) return 0;
  hasFailed = true;
  return armed.error;
}

bool fails(Call call) {
  const int error = errorOf(call);
  if (error > 0) errno = error;
  return error > 0;
}

template <class Function, class... Arguments>
auto callUnless(Call call, Function real, Arguments... arguments) {
  return fails(call) ? decltype(real(arguments...))(-1) : real(arguments...);
}

/// The same for calls that may move fewer bytes than they are asked to.
template <class Function, class Bytes, class... Arguments>
ssize_t moveUnless(Call call, Function real, int file, Bytes bytes, std::size_t size,
                   Arguments... arguments) {
  const int error = errorOf(call);
  if (error > 0) {
    errno = error;
    return -1;
  }
  return real(file, bytes, error == kShort && size > 1 ? size / 2 : size, arguments...);
}

/// An event's descriptor has no disk to be full.
bool isPlainFile(int file) {
  struct stat status {};
  return syscall(SYS_fstat, file, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

void armFault(const Fault& fault) {
  armed = fault;
  hasFailed = false;
  for (auto& count : counts) count = 0;
  isArmed.store(true, std::memory_order_release);
}

bool disarmFault() {
  isArmed = false;
  return hasFailed;
}

Exemption::Exemption(bool isExempt) : wasExempt_(std::exchange(isThreadExempt, isExempt)) {}

Exemption::~Exemption() { isThreadExempt = wasExempt_; }

long countOf(Call call) { return counts[static_cast<int>(call)]; }

#define QV_NEXT(name) \
  static const auto next = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name))

extern "C" {

QV_FAULTS_EXPORT void* malloc(std::size_t size) {
  return fails(Call::kAllocate) ? nullptr : __libc_malloc(size);
}
QV_FAULTS_EXPORT void* calloc(std::size_t count, std::size_t size) {
  return fails(Call::kAllocate) ? nullptr : __libc_calloc(count, size);
}
QV_FAULTS_EXPORT void* realloc(void* memory, std::size_t size) {
  return fails(Call::kAllocate) ? nullptr : __libc_realloc(memory, size);
}
QV_FAULTS_EXPORT void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails(Call::kAllocate) ? nullptr : __libc_memalign(alignment, size);
}
QV_FAULTS_EXPORT int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = aligned_alloc(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}
QV_FAULTS_EXPORT void* mmap(void* place, std::size_t size, int access, int flags, int file,
                            off_t offset) {
  QV_NEXT(mmap);
  return fails(Call::kMap) ? MAP_FAILED : next(place, size, access, flags, file, offset);
}

QV_FAULTS_EXPORT int open(const char* path, int flags, ...) {
  QV_NEXT(open);
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;  // NOLINT
  va_end(more);
  return fails(Call::kOpen) ? -1 : next(path, flags, mode);
}
QV_FAULTS_EXPORT int openat(int directory, const char* path, int flags, ...) {
  QV_NEXT(openat);
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;  // NOLINT
  va_end(more);
  return fails(Call::kOpen) ? -1 : next(directory, path, flags, mode);
}
QV_FAULTS_EXPORT int fcntl(int file, int command, ...) {
  QV_NEXT(fcntl);
  va_list more;
  va_start(more, command);
  void* argument = va_arg(more, void*);
  va_end(more);
  return fails(Call::kControl) ? -1 : next(file, command, argument);
}
QV_FAULTS_EXPORT FILE* fopen(const char* path, const char* mode) {
  QV_NEXT(fopen);
  return fails(Call::kOpen) ? nullptr : next(path, mode);
}
QV_FAULTS_EXPORT DIR* opendir(const char* path) {
  QV_NEXT(opendir);
  return fails(Call::kListDirectory) ? nullptr : next(path);
}
QV_FAULTS_EXPORT ssize_t read(int file, void* bytes, std::size_t size) {
  QV_NEXT(read);
  return isPlainFile(file) ? moveUnless(Call::kRead, next, file, bytes, size)
                           : next(file, bytes, size);
}
QV_FAULTS_EXPORT ssize_t pread(int file, void* bytes, std::size_t size, off_t offset) {
  QV_NEXT(pread);
  return moveUnless(Call::kRead, next, file, bytes, size, offset);
}
QV_FAULTS_EXPORT ssize_t write(int file, const void* bytes, std::size_t size) {
  QV_NEXT(write);
  return isPlainFile(file) && file != STDERR_FILENO
             ? moveUnless(Call::kWrite, next, file, bytes, size)
             : next(file, bytes, size);
}
QV_FAULTS_EXPORT ssize_t writev(int file, const iovec* pieces, int count) {
  QV_NEXT(writev);
  const int error = isPlainFile(file) && file != STDERR_FILENO ? errorOf(Call::kWrite) : 0;
  if (error > 0) {
    errno = error;
    return -1;
  }
  const iovec half{pieces->iov_base, (pieces->iov_len + 1) / 2};
  return error == kShort ? next(file, &half, 1) : next(file, pieces, count);
}
QV_FAULTS_EXPORT ssize_t send(int file, const void* bytes, std::size_t size, int flags) {
  QV_NEXT(send);
  return moveUnless(Call::kSend, next, file, bytes, size, flags);
}
QV_FAULTS_EXPORT ssize_t recv(int file, void* bytes, std::size_t size, int flags) {
  QV_NEXT(recv);
  return moveUnless(Call::kReceive, next, file, bytes, size, flags);
}

// Those that answer -1 with errno, and have nothing more to them.
#define QV_INTERPOSE(call, name, parameters, ...)     \
  QV_FAULTS_EXPORT int name parameters {              \
    QV_NEXT(name);                                    \
    return callUnless(Call::call, next, __VA_ARGS__); \
  }
QV_INTERPOSE(kStat, stat, (const char* path, struct stat* status), path, status)
QV_INTERPOSE(kStat, lstat, (const char* path, struct stat* status), path, status)
QV_INTERPOSE(kStat, fstat, (int file, struct stat* status), file, status)
QV_INTERPOSE(kTruncate, ftruncate, (int file, off_t size), file, size)
QV_INTERPOSE(kFlush, fsync, (int file), file)
QV_INTERPOSE(kFlush, fdatasync, (int file), file)
QV_INTERPOSE(kRename, rename, (const char* from, const char* to), from, to)
QV_INTERPOSE(kRename, renameat2,
             (int directory, const char* from, int other, const char* to, unsigned flags),
             directory, from, other, to, flags)
QV_INTERPOSE(kRemove, unlink, (const char* path), path)
QV_INTERPOSE(kRemove, unlinkat, (int directory, const char* path, int flags), directory, path,
             flags)
QV_INTERPOSE(kRemove, remove, (const char* path), path)
QV_INTERPOSE(kMakeDirectory, mkdir, (const char* path, mode_t mode), path, mode)
QV_INTERPOSE(kSocket, socket, (int domain, int type, int protocol), domain, type, protocol)
QV_INTERPOSE(kSocket, socketpair, (int domain, int type, int protocol, int* pair), domain, type,
             protocol, pair)
QV_INTERPOSE(kBind, bind, (int file, const sockaddr* address, socklen_t size), file, address, size)
QV_INTERPOSE(kConnect, connect, (int file, const sockaddr* address, socklen_t size), file, address,
             size)
QV_INTERPOSE(kPoll, poll, (pollfd * files, nfds_t count, int timeout), files, count, timeout)
QV_INTERPOSE(kEventFile, eventfd, (unsigned count, int flags), count, flags)

QV_FAULTS_EXPORT ssize_t sendto(int file, const void* bytes, std::size_t size, int flags,
                                const sockaddr* address, socklen_t addressSize) {
  QV_NEXT(sendto);
  return callUnless(Call::kSendMessage, next, file, bytes, size, flags, address, addressSize);
}
QV_FAULTS_EXPORT ssize_t recvmsg(int file, msghdr* message, int flags) {
  QV_NEXT(recvmsg);
  return callUnless(Call::kReceiveMessage, next, file, message, flags);
}
/// Letting go of a lock does not fail.
QV_FAULTS_EXPORT int flock(int file, int operation) {
  QV_NEXT(flock);
  return (operation & LOCK_UN) == 0 ? callUnless(Call::kLock, next, file, operation)
                                    : next(file, operation);
}
// These two answer with the error itself.
QV_FAULTS_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                    void* (*start)(void*), void* argument) {
  QV_NEXT(pthread_create);
  const int error = errorOf(Call::kStartThread);
  return error != 0 ? error : next(thread, attributes, start, argument);
}
QV_FAULTS_EXPORT int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                                 addrinfo** addresses) {
  QV_NEXT(getaddrinfo);
  return fails(Call::kResolve) ? EAI_SYSTEM : next(node, service, hints, addresses);
}

}  // extern "C"
