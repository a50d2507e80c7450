// Row interchanges, threaded over columns for wide blocks. Exchanges in
// different columns are independent, so the region needs no lock; the only
// shared write is the fault flag, and the report is made once, after the
// join, by the caller.
#include <cstdarg>
#include <cstdint>

#include "lapack/lapack.h"
#include "lapack/laswp_walk.h"
#include "service/messages.h"
#include "service/threads.h"
#include "src/vos.h"

namespace {

// A panel narrower than this is not worth a fork.
constexpr int kMinForkColumns = 129;

ident_t g_region_loc = {0, 0, 0, 0, ";lapack;tarn_lapack_dlaswp;0;0;;"};
ident_t g_loop_loc = {0, VOS_IDENT_WORK_LOOP, 0, 0, ";lapack;tarn_lapack_dlaswp;0;0;;"};

// Shared record of one region.
struct LaswpRegion {
  int n;
  double* a;
  int lda;
  int k1;
  int k2;
  const int* ipiv;
  int incx;
  int fault;  // 0, or the argument position of ipiv after a bad pivot
};

// Outlined region: microtask(&gtid, &tid, LaswpRegion*). Each thread walks
// its even share of the columns; a bad pivot stops its own exchanges only.
void laswp_region(int32_t* gtid, int32_t* tid, ...) {
  va_list ap;
  va_start(ap, tid);
  LaswpRegion* r = va_arg(ap, LaswpRegion*);
  va_end(ap);

  int32_t last = 0;
  int32_t lower = 0;
  int32_t upper = r->n - 1;
  int32_t stride = 1;
  __vosc_for_static_init_4(&g_loop_loc, *gtid, vos_sch_static, &last, &lower, &upper, &stride,
                           1, 1);
  if (lower <= upper &&
      !tarn_lapack_laswp::laswp_columns(r->a, r->lda, lower, upper + 1, r->k1, r->k2, r->ipiv,
                                        r->incx))
    __atomic_store_n(&r->fault, tarn_lapack_laswp::kPivotPosition, __ATOMIC_RELAXED);
  __vosc_for_static_fini(&g_loop_loc, *gtid);
}

}  // namespace

extern "C" void tarn_lapack_dlaswp(const int* n, double* a, const int* lda, const int* k1,
                                   const int* k2, const int* ipiv, const int* incx) {
  namespace lw = tarn_lapack_laswp;
  const int nthr = tarn_serv_get_max_threads();
  // Other increments do not arise in the LU's path: they stay on this thread.
  if (nthr == 1 || *n < kMinForkColumns || *incx != 1) {
    tarn_lapack_xdlaswp(n, a, lda, k1, k2, ipiv, incx);
    return;
  }

  LaswpRegion region = {*n, a, *lda, *k1, *k2, ipiv, *incx, 0};
  int32_t gtid = __vosc_global_thread_num(&g_region_loc);
  if (__vosc_ok_to_fork(&g_region_loc)) {
    __vosc_push_num_threads(&g_region_loc, gtid, nthr);
    __vosc_fork_call(&g_region_loc, 1, laswp_region, &region);
  } else {
    int32_t tid = 0;
    __vosc_serialized_parallel(&g_region_loc, gtid);
    laswp_region(&gtid, &tid, &region);
    __vosc_end_serialized_parallel(&g_region_loc, gtid);
  }

  if (__atomic_load_n(&region.fault, __ATOMIC_RELAXED) != 0) {
    const int position = lw::kPivotPosition;
    tarn_serv_xerbla(lw::kRoutine, &position, lw::kRoutineLen);
  }
}
