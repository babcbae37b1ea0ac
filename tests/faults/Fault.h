#pragma once

// What can be made to fail in a process that is linked with the interposed library before all
// others: its functions take the place of the system's for every library of the process.

#define QV_FAULTS_EXPORT __attribute__((visibility("default")))

/// Calls of the system that are counted and can fail, and allocations.
enum class Call {
  kAllocate,
  kMap,
  kOpen,
  kStat,
  kRead,  // of plain files, as kWrite
  kWrite,
  kTruncate,
  kFlush,
  kRename,
  kRemove,
  kLock,
  kMakeDirectory,
  kListDirectory,
  kSocket,
  kBind,
  kConnect,
  kSend,
  kReceive,
  kSendMessage,
  kReceiveMessage,
  kPoll,
  kControl,
  kEventFile,
  kStartThread,
  kResolve,
};
constexpr int kCallCount = static_cast<int>(Call::kResolve) + 1;

/// Instead of an errno value: half of the bytes are read or written, which is no error.
constexpr int kShort = -1;

/// Which call fails, how many of its kind succeed before it, and with which errno value it fails. A
/// fault that lasts fails all that follow, too.
struct Fault {
  Call call;
  long after;
  int error;
  bool isLasting;
};

/// From now on calls are counted, of all threads, and that one fails.
QV_FAULTS_EXPORT void armFault(const Fault& fault);
/// From now on nothing fails. Whether anything did.
QV_FAULTS_EXPORT bool disarmFault();
/// While there is one, what its thread calls is neither counted nor fails; one that is not exempt,
/// in the scope of one that is, takes that back.
class QV_FAULTS_EXPORT Exemption {
 public:
  explicit Exemption(bool isExempt = true);
  ~Exemption();
  Exemption(const Exemption&) = delete;
  Exemption& operator=(const Exemption&) = delete;

 private:
  const bool wasExempt_;
};
/// How often it was called while a fault was armed.
QV_FAULTS_EXPORT long countOf(Call call);
