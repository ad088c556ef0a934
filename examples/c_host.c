/* A host in C. */
#include <stdio.h>

#include "veltrano/veltrano_c.h"

/* Sends a message and lets go of its arguments. */
static void send(const char* selector, veltrano_object** arguments, size_t count) {
  size_t i;
  if (veltrano_send(selector, (const veltrano_object* const*)arguments, count, NULL, NULL) !=
      VELTRANO_DONE)
    fprintf(stderr, "%s was not understood.\n", selector);
  for (i = 0; i < count; ++i) veltrano_release(arguments[i]);
}

static veltrano_object* string(const char* text) {
  return veltrano_string(veltrano_c_string(text));
}

/* Takes over the value. */
static void set(veltrano_object* properties, const char* name, veltrano_object* value) {
  veltrano_object* key = string(name);
  veltrano_dictionary_set(properties, key, value);
  veltrano_release(key);
  veltrano_release(value);
}

/* On the library's queue. */
static void finish(void* was_delivered, bool accepted) {
  *(bool*)was_delivered = accepted;
  veltrano_run_loop_stop(veltrano_main_run_loop());
}

int main(int argc, char** argv) {
  veltrano_options options = {.size = sizeof options};
  veltrano_object* error = NULL;
  veltrano_object* properties = NULL;
  bool was_delivered = false;

  if (argc != 3) return 2;
  options.collection_host = veltrano_c_string(argv[1]);         /* such as localhost:8443 */
  options.certificate_authorities = veltrano_c_string(argv[2]); /* none for a public host */
  if (!veltrano_install_posix_platform(&options, &error)) {
    const veltrano_text reason = veltrano_string_text(error);
    fprintf(stderr, "%.*s\n", (int)reason.length, reason.bytes != NULL ? reason.bytes : "");
    veltrano_release(error);
    return 2;
  }

  send("setUserId:", (veltrano_object*[]){string("user-17")}, 1);
  properties = veltrano_dictionary();
  set(properties, "plan", string("pro"));
  set(properties, "items", veltrano_int(3));
  send("trackWithEventName:eventProperties:forceFlushCompletion:",
       (veltrano_object*[]){string("Bought"), properties,
                            veltrano_boolean_block(finish, &was_delivered, NULL)},
       3);
  veltrano_run_loop_run(veltrano_main_run_loop());
  return was_delivered ? 0 : 1;
}
