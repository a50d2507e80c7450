// DGETRF: public entry of the LU factorization.
#include "lapack/iface_trace.h"
#include "lapack/lapack.h"
#include "service/messages.h"

namespace {
using DgetrfFn = void (*)(const int*, const int*, double*, const int*, int*, int*);
// Guard of an optional layer: null would make the entry return at once. In a
// static link it is never null; volatile keeps the test honest.
DgetrfFn volatile g_dgetrf_target = tarn_lapack_dgetrf;
int* g_dgetrf_verbose = &tarn_lapack_iface::g_verbose_not_read;
constexpr char kDgetrfFormat[] = "DGETRF(%d,%d,%p,%d,%p,%d)";
}  // namespace

extern "C" void DGETRF(const int* m, const int* n, double* a, const int* lda, int* ipiv,
                       int* info) {
  namespace tr = tarn_lapack_iface;
  tarn_set_xerbla_interface(cdecl_xerbla);
  tarn_serv_set_progress_interface(cdecl_progress);
  const DgetrfFn target = g_dgetrf_target;
  if (target == nullptr) return;

  if (tr::peek_mode(g_dgetrf_verbose) == tr::kVerboseOff) {
    if (tarn_lapack_errchk_dgetrf(m, n, a, lda, ipiv, info) != 0) return;
    target(m, n, a, lda, ipiv, info);
    return;
  }
  const int mode = tr::verbose_mode(g_dgetrf_verbose);
  double t = tr::trace_clock_start(mode);
  // A fault is traced like a call: the line shows the arguments and info.
  if (tarn_lapack_errchk_dgetrf(m, n, a, lda, ipiv, info) == 0) target(m, n, a, lda, ipiv, info);
  if (mode == tr::kVerboseOff) return;
  t = tr::trace_clock_stop(t);
  tr::trace_emit(t, kDgetrfFormat, tr::value_or_zero(m), tr::value_or_zero(n),
                 static_cast<void*>(a), tr::value_or_zero(lda), static_cast<void*>(ipiv),
                 tr::value_or_zero(info));
}
