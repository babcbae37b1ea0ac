// The core in a daemon with an epoll loop of its own.

#include <QVPlatform/Dispatch/MainQueue.h>
#include <sys/epoll.h>

#include "main_loops/OneHit.h"

namespace {

void watch(int loop, int file) {
  epoll_event event{EPOLLIN, {.fd = file}};
  epoll_ctl(loop, EPOLL_CTL_ADD, file, &event);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  auto& mainQueue = QVPlatform::MainQueue::mainQueue();
  const int termination = openTermination();
  const int loop = epoll_create1(EPOLL_CLOEXEC);
  watch(loop, termination);
  watch(loop, mainQueue.fileDescriptor());

  bool isOver = false;
  OneHit hit(argumentCount, arguments, [&isOver] { isOver = true; });
  while (!isOver) {
    epoll_event event{};
    if (epoll_wait(loop, &event, 1, -1) < 1) continue;  // another signal
    if (event.data.fd == termination) break;
    mainQueue.drain();
  }
  return hit.end();
}
