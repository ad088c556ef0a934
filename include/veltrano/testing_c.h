/* For a host's tests in C: the library in a world of virtual time, as veltrano/testing.h has it for
 * C++. What that header says of a world holds here.
 *
 *     veltrano_world* world = veltrano_world_create();
 *     start_application();                // the host's, with its veltrano_install_posix_platform
 *     buy("ticket");
 *     veltrano_world_advance(world, 20);  // takes milliseconds
 *     assert(veltrano_world_delivered(world, "Bought") == 1);
 *     assert(strcmp(veltrano_world_property(world, "Bought", 0, "item"), "\"ticket\"") == 0);
 *     assert(strcmp(veltrano_world_complaints(world), "") == 0);
 *     veltrano_world_destroy(world);
 *
 * The world itself must not be NULL. Text that a function returns is valid until the world is
 * destroyed. What is asked for and is not there is NULL; veltrano_world_error then says what is
 * there. */
#pragma once

#include <stdbool.h>
#include <stddef.h>

#include "veltrano/veltrano_c.h"

/* NOLINTBEGIN(readability-identifier-naming): the names of C */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct veltrano_world veltrano_world;

/* NULL when there is a world already, with a library of another release, and without memory. */
veltrano_world* veltrano_world_create(void);
void veltrano_world_destroy(veltrano_world* world);

/* What was wrong with the latest call that failed; empty when none has. */
const char* veltrano_world_error(const veltrano_world* world);

/* False on another thread than the one that made the world, and in a callback. */
bool veltrano_world_advance(veltrano_world* world, double seconds);
void veltrano_world_jump_clock(veltrano_world* world, double seconds);

/* How the next `times` posts to `path` are answered, or with 0 all of them: with a status, and a
 * body unless NULL, after `latency` seconds; or by a transport error. */
void veltrano_world_answer(veltrano_world* world, const char* path, int status, const char* body,
                           double latency, size_t times);
void veltrano_world_fail(veltrano_world* world, const char* path, size_t times);

/* The number of delivered events called `name`, or of all when NULL. */
size_t veltrano_world_delivered(veltrano_world* world, const char* name);

/* A property of the event `index` of those called `name`, as JSON with a space after each comma and
 * colon. */
const char* veltrano_world_property(veltrano_world* world, const char* name, size_t index,
                                    const char* path);

/* The layer that it comes from: "automatic", "defaultProperty", "superProperty" or "event". */
const char* veltrano_world_origin(veltrano_world* world, const char* name, size_t index,
                                  const char* path);

size_t veltrano_world_waiting(veltrano_world* world);

size_t veltrano_world_heartbeats(veltrano_world* world);
const char* veltrano_world_session_id(veltrano_world* world, size_t heartbeat);

/* One a line; empty when there are none. */
const char* veltrano_world_complaints(veltrano_world* world);

/* With all steps that the system takes. The functions of veltrano_c.h report everything else. */
void veltrano_world_enter_background(veltrano_world* world);
void veltrano_world_enter_foreground(veltrano_world* world);
void veltrano_world_set_wifi(veltrano_world* world, bool connected);

/* The text of a scenario that scripts/replay plays. */
const char* veltrano_world_trace(veltrano_world* world);

void veltrano_world_end(veltrano_world* world);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(readability-identifier-naming) */
