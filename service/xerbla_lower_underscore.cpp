// One link of the replaceable xerbla chain, in an object of its own so that an
// application may define `xerbla_` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" void xerbla_(const char* name, const int* info, int namelen) { XERBLA_(name, info, namelen); }
