// The core in a libuv loop.

#include <QVPlatform/Dispatch/MainQueue.h>
#include <uv.h>

#include <csignal>

#include "main_loops/OneHit.h"

int main(int argumentCount, char** arguments) {
  uv_loop_t* const loop = uv_default_loop();
  uv_poll_t mainQueue;
  uv_poll_init(loop, &mainQueue, QVPlatform::MainQueue::mainQueue().fileDescriptor());
  uv_poll_start(&mainQueue, UV_READABLE,
                [](uv_poll_t*, int, int) { QVPlatform::MainQueue::mainQueue().drain(); });
  uv_signal_t termination;
  uv_signal_init(loop, &termination);
  uv_signal_start(
      &termination, [](uv_signal_t* signal, int) { uv_stop(signal->loop); }, SIGTERM);

  OneHit hit(argumentCount, arguments, [loop] { uv_stop(loop); });
  uv_run(loop, UV_RUN_DEFAULT);
  return hit.end();
}
