// One link of the replaceable progress chain, in an object of its own so that an
// application may define `TARN_PROGRESS` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" int TARN_PROGRESS(const int* thread, const int* step, const char* stage, int stagelen) { return tarn_serv_default_progress(thread, step, stage, stagelen); }
