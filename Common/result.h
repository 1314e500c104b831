#ifndef QUORVANE_COMMON_RESULT_H
#define QUORVANE_COMMON_RESULT_H

/* What levelMain returns. Plain C, as level.h is. */
enum Result { kSuccess = 0, kFailure = 1, kCancelled = 3 };

#endif
