// The main queue in libuv's loop.
#include "Greeting.h"

#include <uv.h>

int main(int argc, char** argv) {
    auto* const loop = uv_default_loop();
    uv_poll_t watcher;
    int status = 1;
    Greeting greeting(argc, argv, [&](int result) {
        status = result;
        uv_close(reinterpret_cast<uv_handle_t*>(&watcher), nullptr);  // with nothing left to watch the loop ends
    });
    auto const queue = greeting.queue();

    uv_poll_init(loop, &watcher, queue->fd());
    watcher.data = queue.get();
    uv_poll_start(&watcher, UV_READABLE, [](uv_poll_t* handle, int error, int) {
        if (error == 0) static_cast<kv::KvMainQueue*>(handle->data)->poll();
    });
    uv_run(loop, UV_RUN_DEFAULT);
    uv_loop_close(loop);
    return status;
}
