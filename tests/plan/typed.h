#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void track_typed(void);
void track_without_text(void);

#ifdef __cplusplus
}
#endif
