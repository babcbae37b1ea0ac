#pragma once

#include "ChildProcess.h"

namespace QVTest {

/// A program that runs beside the test. What it prints, on either stream, is read as one text.
class Program : public ChildProcess {
 public:
  Program(const std::string& path, std::vector<std::string> arguments)
      : ChildProcess([command = commandOf(path, arguments)](int output) {
          dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
          dup2(output, STDOUT_FILENO);
          dup2(output, STDERR_FILENO);
          execv(command[0], command.data());
          return 127;
        }) {}

 private:
  /// As execv() wants it, made before the fork: another thread may be allocating in the middle.
  static std::vector<char*> commandOf(const std::string& path,
                                      std::vector<std::string>& arguments) {
    arguments.insert(arguments.begin(), path);
    std::vector<char*> command;
    command.reserve(arguments.size() + 1);
    for (auto& argument : arguments) command.push_back(argument.data());
    command.push_back(nullptr);
    return command;
  }
};

}  // namespace QVTest
