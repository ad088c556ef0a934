// Replaces system calls of the C library for the whole process: one of them fails once, when it is
// called for the n-th time.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

// POSIX converts what dlsym returns, and glibc declares sockets' addresses as unions.
#pragma GCC diagnostic ignored "-Wpedantic"

static const char* failing = "";
static atomic_int left;

// Makes call `number` of the function fail, counted from 1 and from now.
void failCall(const char* name, int number) {
  failing = name;
  left = number;
}

bool hasFailed(void) {
  return left <= 0;
}

static bool fails(const char* name) {
  return strcmp(name, failing) == 0 && atomic_fetch_sub(&left, 1) == 1;
}

#define REPLACE_CALL(RESULT, NAME, PARAMETERS, ARGUMENTS, ERROR, FAILURE)               \
  __attribute__((visibility("default"))) RESULT NAME PARAMETERS {                       \
    RESULT(*const original) PARAMETERS = (RESULT(*) PARAMETERS)dlsym(RTLD_NEXT, #NAME); \
    if (!fails(#NAME)) return original ARGUMENTS;                                       \
    errno = ERROR;                                                                      \
    return FAILURE;                                                                     \
  }

REPLACE_CALL(int, socket, (int family, int type, int protocol), (family, type, protocol), EMFILE,
             -1)
REPLACE_CALL(int, connect, (int socket, const struct sockaddr* to, socklen_t size),
             (socket, to, size), ENETUNREACH, -1)
REPLACE_CALL(int, poll, (struct pollfd * inputs, nfds_t count, int limit), (inputs, count, limit),
             ENOMEM, -1)
REPLACE_CALL(ssize_t, send, (int socket, const void* bytes, size_t size, int flags),
             (socket, bytes, size, flags), ECONNRESET, -1)
REPLACE_CALL(ssize_t, recv, (int socket, void* bytes, size_t size, int flags),
             (socket, bytes, size, flags), ECONNRESET, -1)
REPLACE_CALL(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), EMFILE, -1)
REPLACE_CALL(ssize_t, read, (int file, void* bytes, size_t size), (file, bytes, size), EIO, -1)
REPLACE_CALL(ssize_t, write, (int file, const void* bytes, size_t size), (file, bytes, size),
             ENOSPC, -1)
REPLACE_CALL(int, fsync, (int file), (file), EIO, -1)
REPLACE_CALL(int, rename, (const char* from, const char* to), (from, to), EACCES, -1)
REPLACE_CALL(int, mkostemp, (char* path, int flags), (path, flags), EACCES, -1)
REPLACE_CALL(int, getentropy, (void* bytes, size_t size), (bytes, size), ENOSYS, -1)
REPLACE_CALL(int, socketpair, (int family, int type, int protocol, int ends[2]),
             (family, type, protocol, ends), EMFILE, -1)
REPLACE_CALL(int, timerfd_create, (clockid_t clock, int flags), (clock, flags), EMFILE, -1)
REPLACE_CALL(int, pthread_create,
             (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*),
              void* argument),
             (thread, attributes, body, argument), EAGAIN, EAGAIN)
