/* The README's first program, in C. */
#include "veltrano/veltrano_c.h"

#include <stdio.h>

/* Says how each attempt to reach the collection host ended. */
static void report(void* unused, const veltrano_transfer* transfer) {
  (void)unused;
  fprintf(stderr, "%.*s: %d %.*s\n", (int)transfer->path.length, transfer->path.bytes,
          transfer->status, (int)transfer->reason.length, transfer->reason.bytes);
}

/* Runs on the library's work queue. */
static void finish(void* was_delivered, bool accepted) {
  *(bool*)was_delivered = accepted;
  veltrano_run_loop_stop(veltrano_main_run_loop());
}

int main(int argc, char** argv) {
  veltrano_options options = {.size = sizeof options};
  veltrano_object *properties, *error;
  bool was_delivered = false;

  if (argc != 3) return 2;
  options.collection_host = veltrano_c_string(argv[1]);         /* such as localhost:8443 */
  options.certificate_authorities = veltrano_c_string(argv[2]); /* omit for a public host */
  options.on_transfer = report;
  if (!veltrano_install_posix_platform(&options, &error)) {
    const veltrano_text reason = veltrano_string_text(error);
    fprintf(stderr, "%.*s\n", (int)reason.length, reason.bytes);
    return 2;
  }

  properties = veltrano_dictionary();
  veltrano_dictionary_set_text(properties, "plan", "pro");
  veltrano_dictionary_set_int(properties, "items", 3);
  veltrano_set_user_id("user-17");
  veltrano_track("Bought", properties, finish, &was_delivered);
  veltrano_release(properties);
  veltrano_run_loop_run(veltrano_main_run_loop());
  return was_delivered ? 0 : 1;
}
