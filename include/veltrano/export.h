#pragma once

// Marks what the shared library offers; everything else in it is hidden.
#if defined(__GNUC__)
#define VELTRANO_EXPORT __attribute__((visibility("default")))
#else
#define VELTRANO_EXPORT
#endif
