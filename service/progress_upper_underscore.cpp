// One link of the replaceable progress chain, in an object of its own so that an
// application may define `TARN_PROGRESS_` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" int TARN_PROGRESS_(const int* thread, const int* step, const char* stage, int stagelen) { return TARN_PROGRESS(thread, step, stage, stagelen); }
