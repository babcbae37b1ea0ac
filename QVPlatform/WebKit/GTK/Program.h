#pragma once

#include <string>
#include <string_view>

namespace QVPlatform::WebKit {

/// What became of a program that was run.
struct ProgramResult {
  std::string output;   // what it wrote to standard output
  std::string failure;  // how it failed, for people; empty when it ended well
};

/// Runs a program with `input` on its standard input, and waits for its end. It inherits the
/// environment and nothing else: what it writes to standard error is thrown away, and none of the
/// application's descriptors and signal handlers reaches it. It may write 1 MiB.
/// To be called on a thread that has all signals blocked.
ProgramResult runProgram(const std::string& path, std::string_view input);

}  // namespace QVPlatform::WebKit
