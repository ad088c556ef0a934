// Converts Foundation's values to handles of the C interface.
#pragma once

#import <Foundation/Foundation.h>

#include "veltrano/veltrano_c.h"

/// A new handle to a copy of `object`; NULL for nil. Raises what the object raises.
veltrano_object* makeHandle(id object);

/// Declares a handle that is released at the end of its scope, even if an exception ends it.
#define SCOPED_HANDLE __attribute__((cleanup(releaseScopedHandle))) veltrano_object*

static inline void releaseScopedHandle(veltrano_object** handle) {
  veltrano_release(*handle);
}
