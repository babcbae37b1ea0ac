#pragma once

namespace QVPlatform {

/// How often this process has come out of a fork() since the library was loaded: who remembers the
/// number that it started with sees that its threads and connections are another process's. Costs
/// one load; may be called from any thread and from fork handlers.
unsigned forkGeneration() noexcept;

}  // namespace QVPlatform
