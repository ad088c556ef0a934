/* The host in C89. Also a plug-in whose function is `main`. */
#include <string.h>

#include "veltrano/veltrano_c.h"

static void finish(void* was_delivered, bool accepted) {
  *(bool*)was_delivered = accepted;
  veltrano_run_loop_stop(veltrano_main_run_loop());
}

int main(int argc, char** argv) {
  veltrano_options options;
  bool was_delivered = false;

  if (argc != 4) return 2;
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  options.collection_host = veltrano_c_string(argv[1]);
  options.certificate_authorities = veltrano_c_string(argv[2]);
  if (!veltrano_install_posix_platform(&options, NULL)) return 2;
  veltrano_set_user_id("user");
  veltrano_track(argv[3], NULL, finish, &was_delivered);
  veltrano_run_loop_run(veltrano_main_run_loop());
  return was_delivered ? 0 : 1;
}
