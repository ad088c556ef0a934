#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Makes call `number` of the function fail, counted from 1 and from now.
void failCall(const char* name, int number);
bool hasFailed(void);

#ifdef __cplusplus
}
#endif
