// Maximum reduction of one double per thread into a shared value.
#pragma once

#include <cstdint>

// Folds this thread's `partial` into `*shared`, taking it over only when it
// is strictly greater (so a NaN partial is never taken over). Call once per
// thread of the region, after the thread's work.
void reduce_strict_max(int32_t gtid, double* partial, double* shared);
