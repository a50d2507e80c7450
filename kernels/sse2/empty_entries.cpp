// sse2: entries that return at once without doing anything, so that every
// dispatching stub finds a function in this branch.
// This branch has one fixed GEMM routine and neither generation of GEMM
// services: every service entry is empty.
#include "kernels/generic/empty_entries.h"

TARN_EMPTY_LEGACY_GEMM_SERVICES(sse2)
TARN_EMPTY_NEW_GEMM_SERVICES(sse2)
TARN_EMPTY_BDZ_SERVICES(sse2)
