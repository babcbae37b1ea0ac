#pragma once

#include <functional>
#include <string>
#include <vector>

/// Does it, and returns the lines that this process wrote to standard output meanwhile, which is
/// where the core's log goes; they are not seen there. Used by the main thread.
std::vector<std::string> linesLoggedDuring(const std::function<void()>& action);
