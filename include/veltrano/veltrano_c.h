/* Veltrano for C99, and for everything that can call C: the library is sent messages by selector,
 * with objects as their arguments.
 *
 *     veltrano_object* id = veltrano_string(veltrano_c_string("user-17"));
 *     const veltrano_object* arguments[] = {id};
 *     veltrano_send("setUserId:", arguments, 1, NULL, NULL);
 *     veltrano_release(id);
 *
 * Install a platform before the first message; later is too late. Without one the library is inert,
 * but for refresh triggers, which still call their handler. Heartbeats are sent from the run loop
 * of the thread that first sends "setUserId:"; let it be the main thread.
 *
 * Handles. A function that makes an object returns a handle of its own, to be released once with
 * `veltrano_release`; NULL when there is no memory. NULL stands for nil everywhere and harms
 * nowhere. What a function is given it does not keep: release it whenever you like. A build of this
 * library for debugging ends the process with a message when a handle is used soon after its
 * release.
 *
 * Text is UTF-8 and may hold NUL characters; what is ill-formed becomes U+FFFD. Text that a host
 * gives is copied before the function returns.
 *
 * Threads. Everything may be called from any thread unless it says otherwise. A mutable collection
 * is used by one thread at a time, all other objects by any number.
 *
 * Callbacks take the `context` that they were given with. Its `release`, which may be NULL, is
 * called once, on any thread, when the callback will not be called any more, or when no object
 * could be made. A callback has to return: a C++ exception that it throws ends there, but it must
 * not end its thread nor jump out. The library's threads run until the process ends, so what they
 * call has to be there until then. A thread that is cancelled while it is in a function of this
 * interface is so only when that returns; a thread whose cancellation is asynchronous must not call
 * any.
 *
 * In a child that is forked once the platform has been installed the library is inert, too.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "veltrano/export.h"

/* NOLINTBEGIN(readability-identifier-naming): the names of a C interface. */

#ifdef __cplusplus
extern "C" {
#endif

/* Text. Without bytes it is absent, which is something else than empty. */
typedef struct veltrano_text {
  const char* bytes;
  size_t length;
} veltrano_text;

/* The text of a C string, not copied; absent for NULL. */
VELTRANO_EXPORT veltrano_text veltrano_c_string(const char* string);

/* ---- Objects ---- */

/* A handle of an object. */
typedef struct veltrano_object veltrano_object;

/* Nil when the text is absent. */
VELTRANO_EXPORT veltrano_object* veltrano_string(veltrano_text text);
VELTRANO_EXPORT veltrano_object* veltrano_url(veltrano_text text);

/* Numbers boxed by the platform, with the code of their storage type. Events hold them as an Int
 * for the codes 1 to 4, 9 to 11 and 15, as a Bool for 7, and as a Double for every other. An
 * integer made of a double is cut towards zero and kept within 64 bits; NaN reads as 0, and as
 * true. */
VELTRANO_EXPORT veltrano_object* veltrano_number(int code, int64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_number_with_double(int code, double value);
VELTRANO_EXPORT veltrano_object* veltrano_boolean_number(bool value);

/* Numbers of one of the types that events hold. */
VELTRANO_EXPORT veltrano_object* veltrano_int(int64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_uint(uint64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_int64(int64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_double(double value);
VELTRANO_EXPORT veltrano_object* veltrano_float(float value);
VELTRANO_EXPORT veltrano_object* veltrano_bool(bool value);

/* Seconds since 1970-01-01 00:00:00 UTC; NaN counts as 0. */
VELTRANO_EXPORT veltrano_object* veltrano_date(double seconds);

/* An explicit null, which is an object; nil is none. */
VELTRANO_EXPORT veltrano_object* veltrano_null(void);

/* An object of a type that events cannot hold. */
VELTRANO_EXPORT veltrano_object* veltrano_other_object(void);

/* Blocks: a callback that takes nothing, and one that takes a boolean. Nil without a function. */
VELTRANO_EXPORT veltrano_object* veltrano_block(void (*function)(void* context), void* context,
                                                void (*release)(void* context));
VELTRANO_EXPORT veltrano_object* veltrano_boolean_block(void (*function)(void* context, bool value),
                                                        void* context,
                                                        void (*release)(void* context));

/* Empty mutable collections. They take copies of what is added, collections included, and are
 * copied themselves when they are sent: later changes show nowhere. */
VELTRANO_EXPORT veltrano_object* veltrano_array(void);
VELTRANO_EXPORT veltrano_object* veltrano_dictionary(void);

/* Adds an element, nil for an empty slot. False when `array` is none, or there is no memory. */
VELTRANO_EXPORT bool veltrano_array_append(veltrano_object* array, const veltrano_object* element);

/* Sets the value of a key, nil for none. Any object may be a key; blocks and objects of
 * other types are all the same key. False when `dictionary` is none, when the key is nil, or there
 * is no memory. */
VELTRANO_EXPORT bool veltrano_dictionary_set(veltrano_object* dictionary,
                                             const veltrano_object* key,
                                             const veltrano_object* value);

/* Another handle of the same object; of a mutable collection, a copy that never changes. */
VELTRANO_EXPORT veltrano_object* veltrano_copy(const veltrano_object* object);

VELTRANO_EXPORT void veltrano_release(veltrano_object* object);

/* The text of a string, valid until the handle is released; absent for everything else. */
VELTRANO_EXPORT veltrano_text veltrano_string_text(const veltrano_object* object);

/* Whether an event could hold the object as it is: true for strings, URLs, dates, null and the
 * numbers of an event's types; for an array, whether all its elements are such objects or
 * collections; for a dictionary, whether all its values are and all its keys are strings. */
VELTRANO_EXPORT bool veltrano_is_valid_nested_type(const veltrano_object* object);

/* ---- Messages ---- */

typedef enum veltrano_outcome {
  VELTRANO_DONE = 0,
  VELTRANO_NO_SUCH_SELECTOR = 1,
  VELTRANO_WRONG_NUMBER_OF_ARGUMENTS = 2,
  VELTRANO_WRONG_TYPE_OF_ARGUMENT = 3,
  VELTRANO_OUT_OF_MEMORY = 4
} veltrano_outcome;

/* Sends `selector`, a C string, with `count` arguments to the tracker. These are the selectors and
 * what they take; what stands in brackets may also be nil or null, and is then left out. Properties
 * are a dictionary whose keys are strings, triggers an array of strings, a handler is a block and a
 * completion a block that takes a boolean. A handler is called by the thread that tracks. A
 * completion is called on the library's queue, where nothing else happens meanwhile: keep it short.
 * It is not called in the background, nor when a later one takes its place.
 *
 *     shared                          returns an object that stands for the tracker
 *     setUserId:                      string
 *     setAppId:                       string
 *     setIdfa
 *     setLibVersion:                  string
 *     setPublisherUid:                [string]
 *     trackWithEventName:eventProperties:
 *                                     string, properties
 *     trackWithEventName:eventProperties:forceFlushCompletion:
 *                                     string, [properties], [completion]
 *     setSuperPropertiesWithProperties:
 *                                     properties
 *     removeSuperPropertyWithKey:     string
 *     setRefreshTriggersWithHandlerWithTriggers:handler:
 *                                     [triggers], [handler]
 *     getScreenOrientation            returns a string
 *     getDeviceOrientation            returns a string
 *
 * The handlers of the platform's notifications can be reached too, but a platform that is told of
 * the steps below calls them itself: handleWillEnterForeground, handleDidEnterBackground,
 * handleDidChangeStatusBarOrientation, handleDidChangeDeviceOrientation, and setScreenOrientation,
 * which records the screen's orientation.
 *
 * A message that does not fit changes nothing. Out of memory, an operation may have been carried
 * out in part.
 *
 * `returned`, unless it is NULL, gets the handle of what the operation returned; nil when that is
 * nothing. `detail`, unless it is NULL, gets the index of the wrong argument, counted from 0, or
 * the right number of arguments, and is otherwise left alone. */
VELTRANO_EXPORT veltrano_outcome veltrano_send(const char* selector,
                                               const veltrano_object* const* arguments,
                                               size_t count, veltrano_object** returned,
                                               size_t* detail);

/* Whether there is something to be called under `selector`. */
VELTRANO_EXPORT bool veltrano_responds(const char* selector);

/* Whether diagnostic lines are written. */
VELTRANO_EXPORT bool veltrano_is_logger_enabled(void);
VELTRANO_EXPORT void veltrano_set_logger_enabled(bool enabled);

/* ---- Statistics ---- */

/* Counts since the first message, taken at one moment. Set `size` to sizeof(veltrano_statistics).
 * At any moment `recorded` is the sum of `waiting`, `in_flight`, `delivered` and the four kinds of
 * dropped events.
 *
 * An event counts as recorded when it joins the queue, which one that is tracked while an upload is
 * under way does only afterwards. */
typedef struct veltrano_statistics {
  size_t size;

  uint64_t recorded;
  uint64_t waiting;   /* for an upload */
  uint64_t in_flight; /* in the upload under way */
  uint64_t delivered; /* accepted by the collection host */

  uint64_t dropped_by_trimming;      /* the oldest, when too many waited */
  uint64_t dropped_as_refused;       /* with a batch that the host called bad, status 400 */
  uint64_t dropped_as_not_encodable; /* with a batch that JSON cannot hold */
  uint64_t dropped_for_memory;       /* there was not enough to record or to send them */

  /* An upload is one request with all its retries. One of those attempted may be under way. */
  uint64_t uploads_attempted;
  uint64_t uploads_succeeded;           /* answered with status 200 */
  uint64_t uploads_failed_in_transport; /* not answered */
  uint64_t uploads_failed_by_status;    /* answered with another status */
  uint64_t uploads_failed_for_memory;   /* never sent */

  uint64_t heartbeats_sent;
  uint64_t heartbeats_failed; /* of those sent */
} veltrano_statistics;

/* Fills in all counts that `size` has room for. Like a message, call it once the platform is
 * installed. False when `statistics` is NULL or its size is 0. */
VELTRANO_EXPORT bool veltrano_get_statistics(veltrano_statistics* statistics);

/* ---- The platform ---- */

typedef enum veltrano_application_state {
  VELTRANO_ACTIVE = 0,
  VELTRANO_INACTIVE = 1,
  VELTRANO_BACKGROUND = 2
} veltrano_application_state;

/* What the platform is to know from the beginning. Set `size` to sizeof(veltrano_options) and all
 * that you do not use to zero; only the collection host is required. */
typedef struct veltrano_options {
  size_t size;

  /* Where events and heartbeats go: "host" or "host:port", an IPv6 address in brackets. */
  veltrano_text collection_host;

  /* The property list that keeps the library's settings, in a directory that exists; else they last
   * as long as the process. */
  veltrano_text user_defaults_file;

  /* The application's Info dictionary: a dictionary with strings as its keys, or the path of a
   * property list; one that cannot be read counts as none. */
  const veltrano_object* info_dictionary;
  veltrano_text info_property_list_file;

  /* The certificate authorities to trust, as a PEM file; else the system's own. */
  veltrano_text certificate_authorities;

  /* Whether the usual variables, such as `https_proxy`, choose a proxy. */
  bool proxy_from_environment;

  /* The token of the user's session: a handle of a string, which the library releases, or NULL.
   * Called on a thread of the library's before each attempt to send a heartbeat. Keep it short.
   * Its context is needed until the process ends. */
  veltrano_object* (*session_token)(void* context);
  void* session_token_context;

  /* Takes the diagnostic lines in place of the standard output, without a line feed. Called on the
   * thread that logs, by several at once. Its context is needed until the process ends. */
  void (*log_sink)(void* context, veltrano_text line);
  void* log_sink_context;

  /* The name and version of the system; else what `uname` says. */
  veltrano_text system_name;
  veltrano_text system_version;

  /* The initial values of what the functions below change. */
  double screen_width;
  double screen_height;
  int application_state; /* one of veltrano_application_state; anything else is active */
  int interface_orientation;
  int device_orientation;
  veltrano_text carrier_name;
  uint64_t tracking_authorization_status;
  veltrano_text advertising_identifier;

  /* The public key that the collection host has to have, in addition to a valid certificate:
   * "sha256//" and the Base64 of the SHA-256 digest of the key's DER form. Several, separated by
   * semicolons, allow a change of keys. */
  veltrano_text pinned_public_key;

  /* The proxy to connect through, as "http://host:port". */
  veltrano_text proxy;
} veltrano_options;

/* Makes this the library's platform, for good, and the calling thread the main thread. Refused when
 * there is a platform already, when a message has been sent before, in a forked child, or when the
 * options are unusable; `error`, unless it is NULL, then gets the handle of a string that says why,
 * else nil.
 */
VELTRANO_EXPORT bool veltrano_install_posix_platform(const veltrano_options* options,
                                                     veltrano_object** error);

/* The steps of the application's life and what happens to the device, to be reported as they
 * happen. They do nothing before the platform is installed. The steps and the orientations take
 * effect at once on the main thread; from another thread they are handed to its run loop. */
VELTRANO_EXPORT void veltrano_application_did_become_active(void);
VELTRANO_EXPORT void veltrano_application_will_resign_active(void);
VELTRANO_EXPORT void veltrano_application_did_enter_background(void);
VELTRANO_EXPORT void veltrano_application_will_enter_foreground(void);

/* 1 portrait, 2 portrait upside down, 3 and 4 landscape, 0 unknown. */
VELTRANO_EXPORT void veltrano_set_interface_orientation(int orientation);

/* 0 unknown, 1 portrait, 2 portrait upside down, 3 landscape left, 4 landscape right, 5 face up,
 * 6 face down. */
VELTRANO_EXPORT void veltrano_set_device_orientation(int orientation);

/* In points. The library reads it once, with the first event. */
VELTRANO_EXPORT void veltrano_set_screen_size(double width, double height);

/* The name of the cellular carrier; absent without a subscription. */
VELTRANO_EXPORT void veltrano_set_carrier_name(veltrano_text name);

/* 0 not determined, 1 restricted, 2 denied, 3 authorised. */
VELTRANO_EXPORT void veltrano_set_tracking_authorization_status(uint64_t status);

/* The text of a UUID; anything else counts as none. */
VELTRANO_EXPORT void veltrano_set_advertising_identifier(veltrano_text identifier);

/* ---- Run loops ---- */

/* Runs the library's timers on one thread, and functions that are handed to it. A host either lets
 * it run, or polls its file descriptor and runs what is due when there is input. */
typedef struct veltrano_run_loop veltrano_run_loop;

/* The main thread's loop; NULL before the platform is installed. */
VELTRANO_EXPORT veltrano_run_loop* veltrano_main_run_loop(void);

/* The calling thread's loop, valid until the thread ends. */
VELTRANO_EXPORT veltrano_run_loop* veltrano_current_run_loop(void);

/* Runs until it is stopped. On the loop's own thread only; elsewhere returns at once. */
VELTRANO_EXPORT void veltrano_run_loop_run(veltrano_run_loop* loop);

/* Runs for so many seconds; true when it was stopped before. On the loop's own thread only. */
VELTRANO_EXPORT bool veltrano_run_loop_run_for(veltrano_run_loop* loop, double seconds);

/* Ends the innermost run; when there is none, the next one before it has begun. */
VELTRANO_EXPORT void veltrano_run_loop_stop(veltrano_run_loop* loop);

/* Runs `function` later on the loop's thread, after those handed over before. */
VELTRANO_EXPORT void veltrano_run_loop_perform(veltrano_run_loop* loop,
                                               void (*function)(void* context), void* context,
                                               void (*release)(void* context));

/* Has input while there is something to run; not to be read or closed. -1 when there is none. */
VELTRANO_EXPORT int veltrano_run_loop_file_descriptor(veltrano_run_loop* loop);

/* Runs what is due now, without waiting. On the loop's own thread only. */
VELTRANO_EXPORT void veltrano_run_loop_run_due(veltrano_run_loop* loop);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(readability-identifier-naming) */
