// Lets blocks retain the objects that they capture. Debian's blocks runtime is one for C: it copies
// blocks, but not their share in an object. GNUstep's does not copy the blocks of today's
// compilers, so the other one has to come first in the order of linking.
#define _GNU_SOURCE  // for RTLD_NEXT
#import <Block_private.h>
#import <Foundation/Foundation.h>
#import <dlfcn.h>

#include "veltrano/export.h"

// These replace functions of the blocks runtime, which the compiler calls.
VELTRANO_EXPORT void _Block_object_assign(void* field, const void* captured, int kind);
VELTRANO_EXPORT void _Block_object_dispose(const void* captured, int kind);

// Neither a block, nor a __block variable or what one holds.
static bool isObject(int kind) {
  return (kind & (BLOCK_FIELD_IS_BLOCK | BLOCK_FIELD_IS_BYREF | BLOCK_BYREF_CALLER)) ==
         BLOCK_FIELD_IS_OBJECT;
}

void _Block_object_assign(void* field, const void* captured, int kind) {
  if (isObject(kind)) {
    *(id*)field = [(id)captured retain];
    return;
  }
  void (*next)(void*, const void*, int) = NULL;
  *(void**)&next = dlsym(RTLD_NEXT, __func__);
  next(field, captured, kind);
}

void _Block_object_dispose(const void* captured, int kind) {
  if (isObject(kind)) {
    [(id)captured release];
    return;
  }
  void (*next)(const void*, int) = NULL;
  *(void**)&next = dlsym(RTLD_NEXT, __func__);
  next(captured, kind);
}
