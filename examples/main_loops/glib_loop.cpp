// The core in a GLib main loop, which is that of GTK, too: g_application_run() runs the same one.

#include <QVPlatform/Dispatch/MainQueue.h>
#include <glib-unix.h>

#include <csignal>

#include "main_loops/OneHit.h"

namespace {

gboolean drain(int, GIOCondition, void*) {
  QVPlatform::MainQueue::mainQueue().drain();
  return G_SOURCE_CONTINUE;
}

gboolean quit(void* loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGTERM, quit, loop);
  g_unix_fd_add(QVPlatform::MainQueue::mainQueue().fileDescriptor(), G_IO_IN, drain, nullptr);

  OneHit hit(argumentCount, arguments, [loop] { g_main_loop_quit(loop); });
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return hit.end();
}
