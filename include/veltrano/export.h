#pragma once

/* Marks what the shared library exports; everything else has hidden visibility. */
#if defined(__GNUC__)
#define VELTRANO_EXPORT __attribute__((visibility("default")))
#else
#define VELTRANO_EXPORT
#endif
