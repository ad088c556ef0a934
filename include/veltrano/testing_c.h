/* For a host's tests in C: runs the library in virtual time. The counterpart of veltrano/testing.h,
 * which describes a world in detail, also what the installed platform's on_transfer and
 * veltrano_shut_down do in it.
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
 * A world must not be NULL. Returned text is valid until the world is destroyed. A lookup that
 * finds nothing returns NULL; veltrano_world_error then says what exists. */
#pragma once

#include <stdbool.h>
#include <stddef.h>

#include "veltrano/veltrano_c.h"

/* NOLINTBEGIN(readability-identifier-naming): the names of C */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct veltrano_world veltrano_world;

/* NULL if there is a world already, or if memory runs out. */
veltrano_world* veltrano_world_create(void);

/* Warning: not in a callback, and not while another thread calls the library. */
void veltrano_world_destroy(veltrano_world* world);

/* Why the most recent failed call failed; empty if none has. What fails in a function that returns
 * nothing is a complaint, too. */
const char* veltrano_world_error(const veltrano_world* world);

/* False on any thread but the main thread, in a callback, after the end, and if `seconds` is
 * negative, not a number or over a hundred years. */
bool veltrano_world_advance(veltrano_world* world, double seconds);

/* Moves the wall clock forward or back, by 1e12 s at most. The monotonic clock does not change. */
void veltrano_world_jump_clock(veltrano_world* world, double seconds);

/* Answer the next `times` posts to `path`, "/track" or "/heartbeat", or all of them if `times` is
 * 0: with a status, and a body unless NULL, after `latency` seconds; or with a transport error. No
 * effect with any other path, a status that is not between 0 and 999, or a negative latency. */
void veltrano_world_answer(veltrano_world* world, const char* path, int status, const char* body,
                           double latency, size_t times);
void veltrano_world_fail(veltrano_world* world, const char* path, size_t times);

/* Answers with a header, too, such as "Retry-After". */
void veltrano_world_answer_with_header(veltrano_world* world, const char* path, int status,
                                       const char* header, const char* value, size_t times);

/* The number of delivered events called `name`, or of all if it is NULL. */
size_t veltrano_world_delivered(veltrano_world* world, const char* name);

/* A property of event `index` among those called `name`, as JSON with a space after each comma and
 * colon. */
const char* veltrano_world_property(veltrano_world* world, const char* name, size_t index,
                                    const char* path);

/* The layer that the property comes from: "automatic", "defaultProperty", "superProperty" or
 * "event". */
const char* veltrano_world_origin(veltrano_world* world, const char* name, size_t index,
                                  const char* path);

/* The number of events that are waiting or in flight. Events join the queue when the world
 * advances: those tracked since do not count yet. */
size_t veltrano_world_waiting(veltrano_world* world);

size_t veltrano_world_heartbeats(veltrano_world* world);
const char* veltrano_world_session_id(veltrano_world* world, size_t heartbeat);

/* A property of a heartbeat, as of an event. */
const char* veltrano_world_heartbeat_property(veltrano_world* world, size_t heartbeat,
                                              const char* path);

/* The number of requests, and a part of one: "path", "body" (the JSON text), or a value of the
 * query or the headers, such as "query.uid" and "headers.lib_version". */
size_t veltrano_world_requests(veltrano_world* world);
const char* veltrano_world_request(veltrano_world* world, size_t request, const char* part);

/* One per line; empty if there are none. */
const char* veltrano_world_complaints(veltrano_world* world);

/* Lifecycle changes with all their notifications. veltrano_c.h has functions for single ones. */
void veltrano_world_enter_background(veltrano_world* world);
void veltrano_world_enter_foreground(veltrano_world* world);
void veltrano_world_set_wifi(veltrano_world* world, bool connected);

/* Everything that happened so far, as a scenario that scripts/replay plays. */
const char* veltrano_world_trace(veltrano_world* world);

/* Compares events with the tracking plan in `file`; what is not as planned becomes a complaint.
 * False for a plan with faults, which veltrano_world_error then has. */
bool veltrano_world_use_plan(veltrano_world* world, const char* file);

/* Ends the world; what it has seen stays available. No effect in a callback. */
void veltrano_world_end(veltrano_world* world);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(readability-identifier-naming) */
