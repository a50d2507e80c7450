// One link of the replaceable xerbla chain, in an object of its own so that an
// application may define `XERBLA` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" void XERBLA(const char* name, const int* info, int namelen) { tarn_serv_default_xerbla(name, info, namelen); }
