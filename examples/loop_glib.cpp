// Prints the devices that are attached and detached, until Ctrl-C, in GLib's main loop, as in a program
// that uses GTK.
#include <YorvanCore/YLog.h>
#include <glib-unix.h>
#include <yusb_watcher.h>

#include "print_event.h"

struct application {
  yusb::watch_queue queue;
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
};

// The descriptor of the queue is readable.
gboolean take_events(int, GIOCondition, gpointer data) {
  auto& [queue, loop] = *static_cast<application*>(data);
  while (const auto event = queue.next(std::chrono::milliseconds(0))) print_event(*event);
  if (!queue.closed()) return G_SOURCE_CONTINUE;
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

gboolean end(gpointer data) {
  static_cast<application*>(data)->queue.close();  // its descriptor becomes readable
  return G_SOURCE_CONTINUE;
}

int main() {
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);  // the default logs each arrival
  yusb::global_initialize();
  {
    application running;
    g_unix_fd_add(running.queue.descriptor(), G_IO_IN, take_events, &running);
    const guint sources[] = {g_unix_signal_add(SIGINT, end, &running),
                             g_unix_signal_add(SIGTERM, end, &running)};
    g_main_loop_run(running.loop);
    for (const guint source : sources) g_source_remove(source);
    g_main_loop_unref(running.loop);
  }
  yusb::global_release();
}
