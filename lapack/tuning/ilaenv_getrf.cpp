// Step tables of the DGETRF block widths. Each table maps the order of the
// matrix (the smaller of its two sizes) to a width: the first row whose
// bound is not below the order gives the answer.
#include "lapack/tuning/ilaenv_getrf.h"

#include <algorithm>
#include <climits>
#include <span>

namespace tarn_lapack_tuning {
namespace {

struct WidthStep {
  int upto;   // largest order of this step
  int width;  // block width for it
};

// Branch codes of the processor detection.
constexpr int kBranchAvx = 6;
constexpr int kBranchAvx2 = 7;
constexpr int kBranchAvx512Mcx = 8;
constexpr int kBranchAvx512 = 9;

// avx512 and the many-core avx512 line, sequential and threaded alike.
constexpr WidthStep kAvx512Width[] = {
    {2000, 48}, {4000, 96}, {14000, 224}, {INT_MAX, 336}};

// avx2, sequential recursion ("S"); narrow panels stay at 24 so that the
// recursion ends in the unblocked kernel after one halving.
constexpr WidthStep kAvx2SeqWidth[] = {
    {1000, 24}, {2000, 128}, {2500, 160}, {INT_MAX, 240}};

// avx2 with a thread count: tuned for 8 and 32 threads.
constexpr int kAvx2FewThreads = 8;
constexpr int kAvx2ManyThreads = 32;
constexpr WidthStep kAvx2Thr8Width[] = {
    {1500, 24}, {2199, 64}, {2699, 128}, {INT_MAX, 240}};
constexpr WidthStep kAvx2Thr32Width[] = {
    {2500, 24}, {3499, 48}, {4499, 64}, {9499, 120}, {10499, 144}, {INT_MAX, 160}};

// avx with a thread count (tuned for 8 threads).
constexpr WidthStep kAvxThr8Width[] = {
    {700, 16}, {1700, 24}, {2400, 80}, {2800, 128}, {10000, 200}, {INT_MAX, 400}};

// Power-of-two rule of the older branches: the largest power of two below
// the order, except for two bands that are held lower.
constexpr int kPow2LowBandTop = 32;    // orders 17..32 give 8
constexpr int kPow2LowBandWidth = 8;
constexpr int kPow2MidBandTop = 128;   // orders 33..128 give 32
constexpr int kPow2MidBandWidth = 32;
constexpr int kPow2SmallTop = 16;

int step_lookup(std::span<const WidthStep> table, int order) {
  for (const WidthStep& s : table)
    if (order <= s.upto) return s.width;
  return table.back().width;
}

int largest_pow2_below(int order) {
  int p = 1;
  while (p <= (order - 1) / 2) p *= 2;  // p * 2 < order, without overflow
  return p;
}

int pow2_width(int order) {
  if (order > kPow2SmallTop && order <= kPow2LowBandTop) return kPow2LowBandWidth;
  if (order > kPow2LowBandTop && order <= kPow2MidBandTop) return kPow2MidBandWidth;
  return largest_pow2_below(order);
}

// Cross-over: below this width every shape stays sequential; below the
// square bound both sizes together stay sequential.
constexpr int kNarrowWidth = 64;
constexpr int kSmallSquare = 150;
constexpr int kSequential = 1;
constexpr int kParallel = 0;

}  // namespace

int getrf_block_width(int branch, bool sequential, int m, int n, int nthreads) {
  const int order = std::max(1, std::min(m, n));
  int width;
  if (branch == kBranchAvx512 || branch == kBranchAvx512Mcx) {
    width = step_lookup(kAvx512Width, order);
  } else if (branch == kBranchAvx2) {
    if (sequential)
      width = step_lookup(kAvx2SeqWidth, order);
    else if (const int t = std::clamp(nthreads, 0, kAvx2ManyThreads);
             t - kAvx2FewThreads <= kAvx2ManyThreads - t)
      width = step_lookup(kAvx2Thr8Width, order);
    else
      width = step_lookup(kAvx2Thr32Width, order);
  } else if (branch == kBranchAvx && !sequential) {
    width = step_lookup(kAvxThr8Width, order);
  } else {
    width = pow2_width(order);
  }
  return std::max(1, width);
}

int getrf_crossover(int m, int n) {
  if (n < kNarrowWidth) return kSequential;
  if (m < kSmallSquare && n < kSmallSquare) return kSequential;
  return kParallel;
}

}  // namespace tarn_lapack_tuning
