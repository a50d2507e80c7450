// One link of the replaceable progress chain, in an object of its own so that an
// application may define `cdecl_progress` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" int cdecl_progress(const int* thread, const int* step, const char* stage, int stagelen) { return tarn_progress(thread, step, stage, stagelen); }
