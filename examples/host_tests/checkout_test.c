/* Tests of an application in C, without a test framework. */
#undef NDEBUG
#include <assert.h>
#include <string.h>
#include <veltrano/testing_c.h>

/* The application. */

static bool start_application(void) {
  veltrano_options options = {0};
  options.size = sizeof options;
  options.collection_host = (veltrano_text){"events.example.com", 18};
  return veltrano_install_posix_platform(&options, NULL);
}

static void buy(const char* item) {
  veltrano_object* properties = veltrano_dictionary();
  veltrano_dictionary_set_text(properties, "item", item);
  veltrano_track("Bought", properties, NULL, NULL);
  veltrano_release(properties);
}

/* Its tests. */

static void reports_a_purchase_after_an_outage(void) {
  veltrano_world* world = veltrano_world_create();
  veltrano_world_answer(world, "/track", 503, NULL, 0, 1);
  assert(start_application());
  veltrano_set_user_id("user-17");
  buy("ticket");
  veltrano_world_advance(world, 20);
  assert(veltrano_world_delivered(world, NULL) == 0);
  assert(veltrano_world_waiting(world) == 1);
  veltrano_world_advance(world, 20);
  assert(veltrano_world_delivered(world, "Bought") == 1);
  assert(strcmp(veltrano_world_property(world, "Bought", 0, "item"), "\"ticket\"") == 0);
  assert(strcmp(veltrano_world_origin(world, "Bought", 0, "uid"), "superProperty") == 0);
  assert(veltrano_world_property(world, "Bought", 1, "item") == NULL);
  assert(strstr(veltrano_world_error(world), "list of 1") != NULL);
  assert(strcmp(veltrano_world_complaints(world), "") == 0);
  veltrano_world_destroy(world);
}

static void begins_another_session_after_an_hour(void) {
  veltrano_world* world = veltrano_world_create();
  assert(start_application());
  veltrano_set_user_id("user-17");
  veltrano_world_advance(world, 10);
  veltrano_application_did_enter_background();
  veltrano_world_advance(world, 3600);
  veltrano_world_enter_foreground(world);
  veltrano_world_advance(world, 2);
  assert(veltrano_world_heartbeats(world) == 2);
  assert(strcmp(veltrano_world_session_id(world, 0), veltrano_world_session_id(world, 1)) != 0);
  veltrano_world_destroy(world);
}

int main(void) {
  reports_a_purchase_after_an_outage();
  begins_another_session_after_an_hour();
  return 0;
}
