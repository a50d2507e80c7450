// DLAMCH: public entry of the machine constants.
#include "lapack/iface_trace.h"
#include "lapack/lapack.h"
#include "service/messages.h"

namespace {
using DlamchFn = double (*)(const char*);
DlamchFn volatile g_dlamch_target = tarn_lapack_dlamch;
int* g_dlamch_verbose = &tarn_lapack_iface::g_verbose_not_read;
constexpr char kDlamchFormat[] = "DLAMCH(%c)";
}  // namespace

extern "C" double DLAMCH(const char* cmach) {
  namespace tr = tarn_lapack_iface;
  tarn_set_xerbla_interface(cdecl_xerbla);
  const DlamchFn target = g_dlamch_target;
  if (target == nullptr) return 0.0;

  if (tr::peek_mode(g_dlamch_verbose) == tr::kVerboseOff) return target(cmach);
  const int mode = tr::verbose_mode(g_dlamch_verbose);
  double t = tr::trace_clock_start(mode);
  const double result = target(cmach);
  if (mode == tr::kVerboseOff) return result;
  t = tr::trace_clock_stop(t);
  tr::trace_emit(t, kDlamchFormat, static_cast<int>(tr::value_or_zero(cmach)));
  return result;
}
