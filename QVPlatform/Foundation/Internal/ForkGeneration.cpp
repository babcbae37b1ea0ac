#include <QVPlatform/Foundation/Internal/ForkGeneration.h>

#include <pthread.h>

#include <atomic>

namespace QVPlatform {
namespace {

constinit std::atomic<unsigned> generation{0};

/// Registered when the library is loaded, so that no fork can come before it.
[[maybe_unused]] const int isWatched =
    pthread_atfork(nullptr, nullptr, [] { generation.fetch_add(1, std::memory_order_relaxed); });

}  // namespace

unsigned forkGeneration() noexcept { return generation.load(std::memory_order_relaxed); }

}  // namespace QVPlatform
