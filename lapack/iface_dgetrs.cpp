// DGETRS: public entry of the solve with an LU factorization.
#include "lapack/iface_trace.h"
#include "lapack/lapack.h"
#include "service/messages.h"

namespace {
using DgetrsFn = void (*)(const char*, const int*, const int*, const double*, const int*,
                          const int*, double*, const int*, int*);
DgetrsFn volatile g_dgetrs_target = tarn_lapack_dgetrs;
int* g_dgetrs_verbose = &tarn_lapack_iface::g_verbose_not_read;
constexpr char kDgetrsFormat[] = "DGETRS(%c,%d,%d,%p,%d,%p,%p,%d,%d)";
}  // namespace

extern "C" void DGETRS(const char* trans, const int* n, const int* nrhs, const double* a,
                       const int* lda, const int* ipiv, double* b, const int* ldb, int* info) {
  namespace tr = tarn_lapack_iface;
  tarn_set_xerbla_interface(cdecl_xerbla);
  const DgetrsFn target = g_dgetrs_target;
  if (target == nullptr) return;

  if (tr::peek_mode(g_dgetrs_verbose) == tr::kVerboseOff) {
    target(trans, n, nrhs, a, lda, ipiv, b, ldb, info);
    return;
  }
  const int mode = tr::verbose_mode(g_dgetrs_verbose);
  double t = tr::trace_clock_start(mode);
  target(trans, n, nrhs, a, lda, ipiv, b, ldb, info);
  if (mode == tr::kVerboseOff) return;
  t = tr::trace_clock_stop(t);
  tr::trace_emit(t, kDgetrsFormat, static_cast<int>(tr::value_or_zero(trans)),
                 tr::value_or_zero(n), tr::value_or_zero(nrhs), static_cast<const void*>(a),
                 tr::value_or_zero(lda), static_cast<const void*>(ipiv), static_cast<void*>(b),
                 tr::value_or_zero(ldb), tr::value_or_zero(info));
}
