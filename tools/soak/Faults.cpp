#include "soak/Faults.h"

#include <cerrno>

namespace {

enum class Scope { kDisk, kNetwork, kBoth };

struct Kind {
  Call call;
  int error;
  Scope scope;
};

constexpr Kind kKinds[] = {
    {Call::kWrite, ENOSPC, Scope::kDisk},       {Call::kWrite, kShort, Scope::kDisk},
    {Call::kFlush, EIO, Scope::kDisk},          {Call::kRename, EIO, Scope::kDisk},
    {Call::kRemove, EACCES, Scope::kDisk},      {Call::kRead, EIO, Scope::kDisk},
    {Call::kLock, ENOLCK, Scope::kDisk},        {Call::kOpen, EMFILE, Scope::kDisk},
    {Call::kSocket, EMFILE, Scope::kNetwork},   {Call::kConnect, ENETUNREACH, Scope::kNetwork},
    {Call::kSend, ECONNRESET, Scope::kNetwork}, {Call::kReceive, ECONNRESET, Scope::kNetwork},
    {Call::kPoll, ENOMEM, Scope::kNetwork},     {Call::kStartThread, EAGAIN, Scope::kBoth},
    {Call::kAllocate, ENOMEM, Scope::kBoth},
};
constexpr long kMostBefore = 60;
constexpr long kMostAllocationsBefore = 3000;

long upTo(long most, std::mt19937& random) {
  return std::uniform_int_distribution<long>(0, most)(random);
}

}  // namespace

Trouble chooseTrouble(std::mt19937& random) {
  const Kind& kind = kKinds[upTo(std::size(kKinds) - 1, random)];
  // Without any memory for long a process is as good as dead.
  const bool isMemory = kind.call == Call::kAllocate;
  const long after = upTo(isMemory ? kMostAllocationsBefore : kMostBefore, random);
  const bool isLasting = !isMemory && upTo(1, random) == 1;
  return {{kind.call, after, kind.error, isLasting},
          kind.scope != Scope::kNetwork,
          kind.scope != Scope::kDisk};
}
