// One link of the replaceable progress chain, in an object of its own so that an
// application may define `tarn_progress` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" int tarn_progress(const int* thread, const int* step, const char* stage, int stagelen) { return tarn_progress_(thread, step, stage, stagelen); }
