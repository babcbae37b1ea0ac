#include "tour/Tour.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cstring>

extern char** environ;

void Tour::runApplication(const std::string& run) {
  std::vector<std::string> arguments = {"tour", "--run", run, otherContainer, collector.url()};
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  pid_t process = 0;
  const int error =
      posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, pointers.data(), environ);
  if (error != 0) return narrator.check(false, "start: " + std::string(std::strerror(error)));
  int status = 0;
  waitpid(process, &status, 0);
  narrator.check(WIFEXITED(status) && WEXITSTATUS(status) == 0,
                 "the application ended in good order");
}
