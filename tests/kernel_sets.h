// What the tests of every branch's kernels share: whether a branch's
// instruction set runs on this processor, the fixture that skips a branch
// that does not, and the bitwise comparison of results.
#pragma once

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace kernel_sets {

// Whether the instruction set a branch is compiled for runs here.
inline bool always() { return true; }
inline bool has_ssse3() { return __builtin_cpu_supports("ssse3"); }
inline bool has_sse42() {
  return __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt");
}
inline bool has_avx() { return __builtin_cpu_supports("avx"); }
inline bool has_avx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"); }
inline bool has_avx512() {
  return has_avx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
}

// A family's fixture, run once per entry of a table of kernel sets (each
// with a `name` and a `runs_here` predicate); a set whose instruction set
// does not run here is skipped. k() is the set under test.
template <class Set>
class BranchFixture : public ::testing::TestWithParam<Set> {
 protected:
  void SetUp() override {
    if (!this->GetParam().runs_here())
      GTEST_SKIP() << this->GetParam().name << " does not run here";
  }
  const Set& k() const { return this->GetParam(); }
};

// The test names' suffix: the set's name.
template <class Set>
std::string branch_name(const ::testing::TestParamInfo<Set>& info) {
  return info.param.name;
}

inline bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace kernel_sets
