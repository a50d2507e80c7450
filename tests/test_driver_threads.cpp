// The benchmark's thread-count rule: one thread a core unless
// OMP_NUM_THREADS holds a well-formed non-negative number, and never raised
// above what the runtime already offers.
#include <gtest/gtest.h>

#include "driver/thread_count.cpp"
#include "service/threads.h"
#include "src/vos.h"
#include "tests/support/test_support.h"

namespace {

using testsupport::EnvGuard;

int cores() { return tarn_serv_get_ncpus() * tarn_serv_get_ncorespercpu(); }

// Thread limit after the rule ran from a limit of `before`.
int limit_after_rule(int before) {
  omp_set_num_threads(before);
  choose_thread_count();
  return omp_get_max_threads();
}

TEST(DriverThreadCount, UnsetOrEmptyVariableCutsToTheCores) {
  const int c = cores();
  ASSERT_GE(c, 1);
  {
    EnvGuard env("OMP_NUM_THREADS", nullptr);
    EXPECT_EQ(limit_after_rule(c + 5), c);
  }
  {
    EnvGuard env("OMP_NUM_THREADS", "");
    EXPECT_EQ(limit_after_rule(c + 5), c);
  }
}

TEST(DriverThreadCount, MalformedOrNegativeVariableCutsToTheCores) {
  const int c = cores();
  for (const char* value : {"abc", "4x", "-2", "x4", "-2147483649", "-4294967296", "99999999999x"}) {
    EnvGuard env("OMP_NUM_THREADS", value);
    EXPECT_EQ(limit_after_rule(c + 5), c) << value;
  }
}

TEST(DriverThreadCount, WellFormedVariableIsHonouredAboveTheCores) {
  const int c = cores();
  for (const char* value : {"7", "0", "1000", "2147483648", "4294967296", "99999999999"}) {
    EnvGuard env("OMP_NUM_THREADS", value);
    EXPECT_EQ(limit_after_rule(c + 5), c + 5) << value;
  }
}

TEST(DriverThreadCount, NeverRaisesALimitBelowTheCores) {
  EnvGuard env("OMP_NUM_THREADS", "abc");
  EXPECT_EQ(limit_after_rule(1), 1);
}

}  // namespace
