// ILAENV: public entry of the block-size and cross-over queries.
#include "lapack/iface_trace.h"
#include "lapack/lapack.h"
#include "service/messages.h"

namespace {
using IlaenvFn = int (*)(const int*, const char*, const char*, const int*, const int*,
                         const int*, const int*);
IlaenvFn volatile g_ilaenv_target = tarn_lapack_ilaenv;
int* g_ilaenv_verbose = &tarn_lapack_iface::g_verbose_not_read;
constexpr char kIlaenvFormat[] = "ILAENV(%d,%c,%c,%d,%d,%d,%d)";
}  // namespace

extern "C" int ILAENV(const int* ispec, const char* name, const char* opts, const int* n1,
                      const int* n2, const int* n3, const int* n4) {
  namespace tr = tarn_lapack_iface;
  tarn_set_xerbla_interface(cdecl_xerbla);
  const IlaenvFn target = g_ilaenv_target;
  if (target == nullptr) return 0;

  if (tr::peek_mode(g_ilaenv_verbose) == tr::kVerboseOff) return target(ispec, name, opts, n1, n2, n3, n4);
  const int mode = tr::verbose_mode(g_ilaenv_verbose);
  double t = tr::trace_clock_start(mode);
  const int result = target(ispec, name, opts, n1, n2, n3, n4);
  if (mode == tr::kVerboseOff) return result;
  t = tr::trace_clock_stop(t);
  tr::trace_emit(t, kIlaenvFormat, tr::value_or_zero(ispec),
                 static_cast<int>(tr::value_or_zero(name)),
                 static_cast<int>(tr::value_or_zero(opts)), tr::value_or_zero(n1),
                 tr::value_or_zero(n2), tr::value_or_zero(n3), tr::value_or_zero(n4));
  return result;
}
