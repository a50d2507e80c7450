// One link of the replaceable xerbla chain, in an object of its own so that an
// application may define `XERBLA_` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" void XERBLA_(const char* name, const int* info, int namelen) { XERBLA(name, info, namelen); }
