/* Veltrano, an event-analytics client: its interface for C99 and every language that calls C.
 *
 *     veltrano_object* properties = veltrano_dictionary();
 *     veltrano_dictionary_set_text(properties, "plan", "pro");
 *     veltrano_dictionary_set_int(properties, "items", 3);
 *     veltrano_set_user_id("user-17");
 *     veltrano_track("Bought", properties, NULL, NULL);
 *     veltrano_release(properties);
 *
 * Install a platform before the first call (veltrano_install_posix_platform); later it is refused.
 * Without one the library is inert: calls do nothing, except that refresh triggers still call their
 * handler.
 *
 * Conventions:
 *
 * (1) A function that returns a veltrano_object* returns a new handle, to be released once with
 *     veltrano_release; NULL when out of memory. Functions copy what they are given and never take
 *     over a handle, nested collections included: there is one rule for all handles. Debug builds
 *     of the library abort with a message when a handle is used after its release.
 *
 * (2) NULL is allowed wherever a pointer is. It stands for nil, for absent text, for no function.
 *
 * (3) A const char* is NUL-terminated text, a veltrano_text has a length and may hold NULs. Both
 *     are UTF-8; ill-formed sequences become U+FFFD.
 *
 * (4) Functions that track, set, append or remove return false when a required argument is NULL,
 *     when an object is of the wrong type, or when out of memory. Nothing has then been done; only
 *     out of memory, an operation may have been carried out in part.
 *
 * (5) Any thread may call any function, unless the function says otherwise; no function waits for
 *     the network. Only one thread at a time may use a mutable collection.
 *
 * (6) A callback gets the context that it was passed with. It must return: no longjmp, no
 *     pthread_exit. A C++ exception that it throws is dropped. The library's threads run until the
 *     process ends or the library is shut down (veltrano_shut_down), so callbacks and their
 *     contexts must last as long as they can be called.
 *
 * (7) Cancellation of a thread is deferred until its call into the library returns. A thread whose
 *     cancellation is asynchronous must not call the library.
 *
 * (8) In a child that is forked after a platform has been installed, the library is inert.
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

/* The version of this header. */
#define VELTRANO_VERSION_MAJOR 1
#define VELTRANO_VERSION_MINOR 0
#define VELTRANO_VERSION_PATCH 0
#define VELTRANO_VERSION "1.0.0"

/* The version of the library, such as "1.0.0". */
VELTRANO_EXPORT const char* veltrano_version(void);

/* A handle of an object: a string, a number, a collection, a block (see "Objects"). */
typedef struct veltrano_object veltrano_object;

/* Text with a length. Absent, which differs from empty, when `bytes` is NULL. */
typedef struct veltrano_text {
  const char* bytes;
  size_t length;
} veltrano_text;

/* The text of a C string, not copied; absent for NULL. */
VELTRANO_EXPORT veltrano_text veltrano_c_string(const char* string);

/* ---- Tracking ---- */

/* Records an event. `properties` is a dictionary whose keys are all strings, or NULL for none.
 *
 * With a completion, and while the application is in the foreground, everything that waits is
 * uploaded at once. The completion is called on the library's work queue, where nothing else
 * happens meanwhile: keep it short. `accepted` is true when the events will not be sent again.
 *
 * Trap: a batch that the collection host refuses with status 400 counts as accepted.
 * Trap: the completion is not called in the background, nor when a later flush replaces its own. A
 * context that has to be freed goes into a veltrano_boolean_block, sent with veltrano_send. */
VELTRANO_EXPORT bool veltrano_track(const char* name, const veltrano_object* properties,
                                    void (*completion)(void* context, bool accepted),
                                    void* context);

/* Names the user; an empty id is ignored. The first id also starts the session heartbeat, in the
 * run loop of the calling thread: call this on the main thread. */
VELTRANO_EXPORT bool veltrano_set_user_id(const char* id);

/* Names the application; an empty id is kept as it is. */
VELTRANO_EXPORT bool veltrano_set_app_id(const char* id);

VELTRANO_EXPORT bool veltrano_set_lib_version(const char* version);

/* Adds the device's advertising identifier to every later event. */
VELTRANO_EXPORT bool veltrano_set_idfa(void);

/* Names the user as the publisher knows them; NULL or empty text removes the name. */
VELTRANO_EXPORT bool veltrano_set_publisher_uid(const char* uid);

/* Adds properties to every later event, replacing those of the same key. A value that cannot be
 * represented leaves the earlier one in place. */
VELTRANO_EXPORT bool veltrano_set_super_properties(const veltrano_object* properties);

VELTRANO_EXPORT bool veltrano_remove_super_property(const char* key);

/* From now on, tracking an event with one of `count` names first calls `handler`, on the thread
 * that tracks. Replaces the earlier triggers; without names or handler nothing is called. */
VELTRANO_EXPORT bool veltrano_set_refresh_triggers(const char* const* names, size_t count,
                                                   void (*handler)(void* context), void* context);

/* The interface's orientation now: "portrait", "landscape" or "unknown". */
VELTRANO_EXPORT const char* veltrano_screen_orientation(void);

/* The device's orientation now: "portrait", "portraitUpsideDown", "landscapeLeft",
 * "landscapeRight", "faceUp", "faceDown" or "unknown". */
VELTRANO_EXPORT const char* veltrano_device_orientation(void);

/* Whether diagnostic lines are written. */
VELTRANO_EXPORT bool veltrano_is_logger_enabled(void);
VELTRANO_EXPORT void veltrano_set_logger_enabled(bool enabled);

/* ---- Collections ---- */

/* New, empty, mutable collections. Copies do not change with them.
 *
 * Trap: collections nest 128 deep, an event's properties included; deeper ones become absent. */
VELTRANO_EXPORT veltrano_object* veltrano_array(void);
VELTRANO_EXPORT veltrano_object* veltrano_dictionary(void);

/* Set the value of a key, replacing an earlier one. Absent text and a nil object make a key without
 * a value, which events leave out. The objects of the same names are described below. */
VELTRANO_EXPORT bool veltrano_dictionary_set_text(veltrano_object* dictionary, const char* key,
                                                  const char* value);
VELTRANO_EXPORT bool veltrano_dictionary_set_int(veltrano_object* dictionary, const char* key,
                                                 int64_t value);
VELTRANO_EXPORT bool veltrano_dictionary_set_uint(veltrano_object* dictionary, const char* key,
                                                  uint64_t value);
VELTRANO_EXPORT bool veltrano_dictionary_set_int64(veltrano_object* dictionary, const char* key,
                                                   int64_t value);
VELTRANO_EXPORT bool veltrano_dictionary_set_double(veltrano_object* dictionary, const char* key,
                                                    double value);
VELTRANO_EXPORT bool veltrano_dictionary_set_float(veltrano_object* dictionary, const char* key,
                                                   float value);
VELTRANO_EXPORT bool veltrano_dictionary_set_bool(veltrano_object* dictionary, const char* key,
                                                  bool value);
VELTRANO_EXPORT bool veltrano_dictionary_set_date(veltrano_object* dictionary, const char* key,
                                                  double seconds);
VELTRANO_EXPORT bool veltrano_dictionary_set_url(veltrano_object* dictionary, const char* key,
                                                 const char* value);
VELTRANO_EXPORT bool veltrano_dictionary_set_null(veltrano_object* dictionary, const char* key);
VELTRANO_EXPORT bool veltrano_dictionary_set_number(veltrano_object* dictionary, const char* key,
                                                    int code, int64_t value);
VELTRANO_EXPORT bool veltrano_dictionary_set_number_with_double(veltrano_object* dictionary,
                                                                const char* key, int code,
                                                                double value);
VELTRANO_EXPORT bool veltrano_dictionary_set_object(veltrano_object* dictionary, const char* key,
                                                    const veltrano_object* value);

/* Sets the value of a key that is an object itself, such as a string with a NUL.
 *
 * Trap: an event with a dictionary that has a key other than a string cannot be sent, and its whole
 * batch is dropped with it. Blocks and objects of other types are all the same key. */
VELTRANO_EXPORT bool veltrano_dictionary_set(veltrano_object* dictionary,
                                             const veltrano_object* key,
                                             const veltrano_object* value);

/* Append an element. Absent text and nil make an empty slot, which events leave out. */
VELTRANO_EXPORT bool veltrano_array_append_text(veltrano_object* array, const char* value);
VELTRANO_EXPORT bool veltrano_array_append_int(veltrano_object* array, int64_t value);
VELTRANO_EXPORT bool veltrano_array_append_uint(veltrano_object* array, uint64_t value);
VELTRANO_EXPORT bool veltrano_array_append_int64(veltrano_object* array, int64_t value);
VELTRANO_EXPORT bool veltrano_array_append_double(veltrano_object* array, double value);
VELTRANO_EXPORT bool veltrano_array_append_float(veltrano_object* array, float value);
VELTRANO_EXPORT bool veltrano_array_append_bool(veltrano_object* array, bool value);
VELTRANO_EXPORT bool veltrano_array_append_date(veltrano_object* array, double seconds);
VELTRANO_EXPORT bool veltrano_array_append_url(veltrano_object* array, const char* value);
VELTRANO_EXPORT bool veltrano_array_append_null(veltrano_object* array);
VELTRANO_EXPORT bool veltrano_array_append_number(veltrano_object* array, int code, int64_t value);
VELTRANO_EXPORT bool veltrano_array_append_number_with_double(veltrano_object* array, int code,
                                                              double value);
VELTRANO_EXPORT bool veltrano_array_append(veltrano_object* array, const veltrano_object* element);

/* ---- Objects ---- */

VELTRANO_EXPORT void veltrano_release(veltrano_object* object);

/* Another handle of the same object; of a mutable collection, a copy that never changes. */
VELTRANO_EXPORT veltrano_object* veltrano_copy(const veltrano_object* object);

/* Nil when the text is absent. */
VELTRANO_EXPORT veltrano_object* veltrano_string(veltrano_text text);
VELTRANO_EXPORT veltrano_object* veltrano_url(veltrano_text text);

/* Numbers of the types that events hold, each kept as the type that it was made as. */
VELTRANO_EXPORT veltrano_object* veltrano_int(int64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_uint(uint64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_int64(int64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_double(double value);
VELTRANO_EXPORT veltrano_object* veltrano_float(float value);
VELTRANO_EXPORT veltrano_object* veltrano_bool(bool value);

/* Numbers boxed by the platform, with the code of their storage type. Events hold them as an Int
 * for the codes 1 to 4, 9 to 11 and 15, as a Bool for 7, and as a Double for every other. The Int
 * of a double is truncated and limited to 64 bits; NaN reads as 0, and as true. */
VELTRANO_EXPORT veltrano_object* veltrano_number(int code, int64_t value);
VELTRANO_EXPORT veltrano_object* veltrano_number_with_double(int code, double value);
VELTRANO_EXPORT veltrano_object* veltrano_boolean_number(bool value);

/* Seconds since 1970-01-01 00:00:00 UTC; NaN counts as 0. */
VELTRANO_EXPORT veltrano_object* veltrano_date(double seconds);

/* An explicit null, which events hold as null. Nil is no object at all. */
VELTRANO_EXPORT veltrano_object* veltrano_null(void);

/* An object of a type that events cannot hold. */
VELTRANO_EXPORT veltrano_object* veltrano_other_object(void);

/* Blocks: a callback with its context. `release` is called once with the context, on any thread,
 * when the callback will not be called any more, or when no block could be made. Nil when
 * `function` is NULL. */
VELTRANO_EXPORT veltrano_object* veltrano_block(void (*function)(void* context), void* context,
                                                void (*release)(void* context));
VELTRANO_EXPORT veltrano_object* veltrano_boolean_block(void (*function)(void* context, bool value),
                                                        void* context,
                                                        void (*release)(void* context));

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

/* An outcome in English, such as "no such selector". */
VELTRANO_EXPORT const char* veltrano_outcome_text(veltrano_outcome outcome);

/* Calls an operation by its selector, with objects as its arguments: for bindings, for text with
 * NULs and for contexts that have to be released.
 *
 *     veltrano_object* arguments[] = {veltrano_string(name)};
 *     veltrano_send("setUserId:", arguments, 1, NULL, NULL);
 *     veltrano_release(arguments[0]);
 *
 * Arguments in brackets may be nil or null. Properties are a dictionary whose keys are all strings,
 * triggers an array of strings, a handler is a block, a completion a boolean block.
 *
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
 *     shared                          returns an object that stands for the tracker
 *
 * Selectors of the platform's notifications, which the functions under "Device and application"
 * post already: handleWillEnterForeground, handleDidEnterBackground,
 * handleDidChangeStatusBarOrientation, handleDidChangeDeviceOrientation; and setScreenOrientation,
 * which records the interface's orientation.
 *
 * A message that does not fit changes nothing. `returned`, unless NULL, gets a handle of what the
 * operation returned, or nil. `detail`, unless NULL, gets the index of the first wrong argument or
 * the right number of arguments; otherwise it keeps its value. */
VELTRANO_EXPORT veltrano_outcome veltrano_send(const char* selector,
                                               veltrano_object* const* arguments, size_t count,
                                               veltrano_object** returned, size_t* detail);

/* Whether veltrano_send knows `selector`. */
VELTRANO_EXPORT bool veltrano_responds(const char* selector);

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

/* Set `size` to sizeof(veltrano_options) and what you do not use to zero; only the collection host
 * is required. */
typedef struct veltrano_options {
  size_t size;

  /* Where events and heartbeats go: "host" or "host:port", an IPv6 address in brackets. */
  veltrano_text collection_host;

  /* The property list that keeps the library's settings, in a directory that exists. Without one
   * they last as long as the process. */
  veltrano_text user_defaults_file;

  /* The application's Info dictionary: a dictionary whose keys are all strings, or the path of a
   * property list. A file that cannot be read counts as none. */
  const veltrano_object* info_dictionary;
  veltrano_text info_property_list_file;

  /* The certificate authorities to trust, as a PEM file; absent: the system's. */
  veltrano_text certificate_authorities;

  /* Whether the usual variables, such as `https_proxy`, choose a proxy. */
  bool proxy_from_environment;

  /* Returns the token of the user's session, as a handle of a string that the library releases, or
   * NULL. Called on a thread of the library before each attempt to send a heartbeat: keep it short.
   * The context must last until the process ends or the library is shut down. */
  veltrano_object* (*session_token)(void* context);
  void* session_token_context;

  /* Takes the diagnostic lines in place of the standard output, without a line feed. Called on the
   * thread that logs, by several threads at once. The context must last until the process ends or
   * the library is shut down. */
  void (*log_sink)(void* context, veltrano_text line);
  void* log_sink_context;

  /* The name and version of the system; absent: those of `uname`. */
  veltrano_text system_name;
  veltrano_text system_version;

  /* Initial values, which the functions under "Device and application" change. */
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

/* Installs the platform for the rest of the process and makes the calling thread the main thread.
 * Refused when there is a platform already, after the first call that needs one, in a forked child,
 * or when the options are unusable. `error`, unless NULL, then gets a handle of a string that says
 * why, otherwise nil. */
VELTRANO_EXPORT bool veltrano_install_posix_platform(const veltrano_options* options,
                                                     veltrano_object** error);

/* Shuts the library down for good, as when an application is closed: it enters the background, and
 * what waits or is under way is sent, for at most `seconds`. Then the library is inert: it calls
 * nothing back, its threads have ended or sleep, and pending callbacks have been released uncalled.
 * A callback that is running then is waited for up to a second; if it has not returned by then, it
 * is released when it does. After that an interpreter or a plug-in may end.
 *
 * True when nothing was left: everything was sent, and no callback is running. False at once before
 * the platform is installed, and when called from a callback or on one of the library's threads.
 * Calls made meanwhile wait for the first and return what it does, as do later ones, at once. Other
 * threads should be done with the library; what they still track may be lost. Statistics keep their
 * last values, run loops go on to run what is handed to them, and no other platform can be
 * installed. Without this call the process may end at any time as well; what waits is then lost. */
VELTRANO_EXPORT bool veltrano_shut_down(double seconds);

/* ---- Device and application ---- */

/* Report what happens to the application and the device as it happens. These functions do nothing
 * before the platform is installed. Steps of the application's life and orientations take effect at
 * once on the main thread; other threads hand them to its run loop. */
VELTRANO_EXPORT void veltrano_application_did_become_active(void);
VELTRANO_EXPORT void veltrano_application_will_resign_active(void);
VELTRANO_EXPORT void veltrano_application_did_enter_background(void);
VELTRANO_EXPORT void veltrano_application_will_enter_foreground(void);

/* 1 portrait, 2 portrait upside down, 3 and 4 landscape, 0 unknown. */
VELTRANO_EXPORT void veltrano_set_interface_orientation(int orientation);

/* 0 unknown, 1 portrait, 2 portrait upside down, 3 landscape left, 4 landscape right, 5 face up,
 * 6 face down. */
VELTRANO_EXPORT void veltrano_set_device_orientation(int orientation);

/* In points. The library reads the size once, with the first event. */
VELTRANO_EXPORT void veltrano_set_screen_size(double width, double height);

/* The name of the cellular carrier; absent without a subscription. */
VELTRANO_EXPORT void veltrano_set_carrier_name(veltrano_text name);

/* 0 not determined, 1 restricted, 2 denied, 3 authorised. */
VELTRANO_EXPORT void veltrano_set_tracking_authorization_status(uint64_t status);

/* The text of a UUID; anything else counts as none. */
VELTRANO_EXPORT void veltrano_set_advertising_identifier(veltrano_text identifier);

/* ---- Run loops ---- */

/* Runs the library's timers, and functions handed to it, on one thread. A host either runs the loop
 * or polls its file descriptor and runs what is due when there is input. */
typedef struct veltrano_run_loop veltrano_run_loop;

/* The main thread's loop; NULL before the platform is installed. */
VELTRANO_EXPORT veltrano_run_loop* veltrano_main_run_loop(void);

/* The calling thread's loop, valid until the thread ends. */
VELTRANO_EXPORT veltrano_run_loop* veltrano_current_run_loop(void);

/* Runs until it is stopped. On the loop's own thread only; elsewhere returns at once. */
VELTRANO_EXPORT void veltrano_run_loop_run(veltrano_run_loop* loop);

/* Runs for `seconds`; returns true when stopped earlier. On the loop's own thread only. */
VELTRANO_EXPORT bool veltrano_run_loop_run_for(veltrano_run_loop* loop, double seconds);

/* Ends the innermost run. With none under way, the next run ends at once. */
VELTRANO_EXPORT void veltrano_run_loop_stop(veltrano_run_loop* loop);

/* Hands `function` to the loop's thread, which calls it after those handed over before. `release`
 * is called once with the context, as for a block. */
VELTRANO_EXPORT void veltrano_run_loop_perform(veltrano_run_loop* loop,
                                               void (*function)(void* context), void* context,
                                               void (*release)(void* context));

/* A descriptor that has input while something is due; do not read or close it. -1 if none. */
VELTRANO_EXPORT int veltrano_run_loop_file_descriptor(veltrano_run_loop* loop);

/* Runs what is due now, without waiting. On the loop's own thread only. */
VELTRANO_EXPORT void veltrano_run_loop_run_due(veltrano_run_loop* loop);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(readability-identifier-naming) */
