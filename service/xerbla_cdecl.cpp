// One link of the replaceable xerbla chain, in an object of its own so that an
// application may define `cdecl_xerbla` itself and the rest of the chain still
// reaches it.
#include "service/messages.h"

extern "C" void cdecl_xerbla(const char* name, const int* info, int namelen) { xerbla(name, info, namelen); }
