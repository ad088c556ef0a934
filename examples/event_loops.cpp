// Drives the library from other event loops, so that the application keeps a single loop:
//
//     event_loops poll|glib|libuv|asio HOST CERTIFICATE
//
// Each loop watches the run loop's descriptor, and calls `runDue` when it has input.
#include <poll.h>

#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"
#ifdef HAS_GLIB
#include <glib-unix.h>
#endif
#ifdef HAS_LIBUV
#include <uv.h>
#endif
#ifdef HAS_ASIO
#include <asio.hpp>
#endif

namespace {

bool isDone = false;  // the main thread's

void poll(veltrano::RunLoop& library) {
  pollfd descriptor = {library.fileDescriptor(), POLLIN, 0};
  while (!isDone && ::poll(&descriptor, 1, -1) >= 0) library.runDue();
}

#ifdef HAS_GLIB
void glib(veltrano::RunLoop& library) {
  const auto runDue = [](gint, GIOCondition, gpointer data) -> gboolean {
    static_cast<veltrano::RunLoop*>(data)->runDue();
    return G_SOURCE_CONTINUE;
  };
  g_unix_fd_add(library.fileDescriptor(), G_IO_IN, runDue, &library);
  while (!isDone) g_main_context_iteration(nullptr, true);
}
#endif

#ifdef HAS_LIBUV
void libuv(veltrano::RunLoop& library) {
  uv_poll_t watch;
  watch.data = &library;
  uv_poll_init(uv_default_loop(), &watch, library.fileDescriptor());
  uv_poll_start(&watch, UV_READABLE, [](uv_poll_t* self, int, int) {
    static_cast<veltrano::RunLoop*>(self->data)->runDue();
    if (isDone) uv_poll_stop(self);
  });
  uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}
#endif

#ifdef HAS_ASIO
void asio(veltrano::RunLoop& library) {
  asio::io_context context;
  asio::posix::stream_descriptor descriptor(context, library.fileDescriptor());
  const std::function<void()> watch = [&] {
    descriptor.async_wait(descriptor.wait_read, [&](std::error_code error) {
      if (error) return;
      library.runDue();
      if (!isDone) watch();
    });
  };
  watch();
  context.run();
  descriptor.release();  // it is the library's
}
#endif

const std::map<std::string, void (*)(veltrano::RunLoop&)> kLoops = {
    {"poll", poll},
#ifdef HAS_GLIB
    {"glib", glib},
#endif
#ifdef HAS_LIBUV
    {"libuv", libuv},
#endif
#ifdef HAS_ASIO
    {"asio", asio},
#endif
};

}  // namespace

int main(int argc, char** argv) {
  const auto loop = argc == 4 ? kLoops.find(argv[1]) : kLoops.end();
  if (loop == kLoops.end()) return 2;
  veltrano::PosixOptions options;
  options.collectionHost = argv[2];
  options.certificateAuthorities = argv[3];
  const auto installation = veltrano::PosixPlatform::install(options);
  if (!installation) return std::cerr << installation.error << '\n', 2;

  auto& library = installation.platform->mainRunLoop();
  bool wasDelivered = false;
  Veltrano::shared().setUserId("user-17");
  Veltrano::shared().track("Bought", {{"loop", argv[1]}}, [&](bool accepted) {
    library.perform([&, accepted] {  // on the main thread, which this also wakes
      wasDelivered = accepted;
      isDone = true;
    });
  });
  loop->second(library);
  return wasDelivered ? 0 : 1;
}
