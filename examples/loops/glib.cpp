// The main queue in GLib's main loop, as GTK programs have it.
#include "Greeting.h"

#include <glib-unix.h>

int main(int argc, char** argv) {
    auto* const loop = g_main_loop_new(nullptr, FALSE);
    int status = 1;
    Greeting greeting(argc, argv, [&](int result) {
        status = result;
        g_main_loop_quit(loop);
    });
    auto const queue = greeting.queue();

    auto const onReadable = [](int, GIOCondition, void* data) -> gboolean {
        static_cast<kv::KvMainQueue*>(data)->poll();
        return G_SOURCE_CONTINUE;
    };
    auto const source = g_unix_fd_add(queue->fd(), G_IO_IN, onReadable, queue.get());
    g_main_loop_run(loop);
    g_source_remove(source);
    g_main_loop_unref(loop);
    return status;
}
