// Thread-count policy: the environment variables with their edge cases, the
// priority of the counts, dynamic clipping, the MPI rules and the core probe.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "service/threads.h"
#include "src/vos.h"
#include "tests/support/test_support.h"

namespace {

using testsupport::EnvGuard;

constexpr const char* kPolicyVariables[] = {
    "TARN_NUM_THREADS",     "TARN_DOMAIN_NUM_THREADS",
    "TARN_NUM_STRIPES",     "TARN_DYNAMIC",
    "TARN_MPI_PPN",         "VX_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE",
    "VX_MPI_PIN_MAPPING",   "VX_MPI_THREAD_LEVEL",
    "OMPI_COMM_WORLD_LOCAL_SIZE", "MPI_LOCALNRANKS",
    "OMP_NUM_THREADS",
};

// Every test starts from a clean environment and a policy that has read
// nothing yet; the probe's machine facts are kept.
class ThreadPolicy : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kPolicyVariables) clean_.push_back(std::make_unique<EnvGuard>(name, nullptr));
    tarn_serv_threads_reset();
  }
  void TearDown() override {
    tarn_serv_threads_reset();
    omp_set_num_threads(omp_get_num_procs());
  }

  // Sets a variable for the rest of the test.
  void env(const char* name, const char* value) {
    set_.push_back(std::make_unique<EnvGuard>(name, value));
  }
  // Runs the start step (reads the environment) and returns nothing.
  static void start() { tarn_serv_get_dynamic(); }

 private:
  std::vector<std::unique_ptr<EnvGuard>> clean_, set_;
};

// ---- TARN_NUM_THREADS and OMP_NUM_THREADS -------------------------------------

struct CountCase {
  const char* value;
  int stored;
};

TEST_F(ThreadPolicy, NumThreadsDigitsOnlyElseOne) {
  const CountCase cases[] = {{"4", 4},
                             {"17", 17},
                             {"abc", 1},
                             {"-2", 1},
                             {" 4", 1},
                             {"4 ", 1},
                             {"3x", 1},
                             {"0", -1},
                             {"", -1},
                             {"2147483647", INT32_MAX},
                             {"2147483648", INT32_MAX},
                             {"4294967296", INT32_MAX},
                             {"4294967297", INT32_MAX},
                             {"99999999999", INT32_MAX}};
  for (const CountCase& c : cases) {
    tarn_serv_threads_reset();
    EnvGuard g("TARN_NUM_THREADS", c.value);
    start();
    EXPECT_EQ(__tarn_num_threads, c.stored) << "TARN_NUM_THREADS=\"" << c.value << "\"";
  }
}

TEST_F(ThreadPolicy, OmpNumThreadsAsReadHere) {
  const CountCase cases[] = {{"3", 3},  {"4,2", 1}, {"x", 1}, {"0", -1}, {"", -1},
                             {"4294967296", INT32_MAX}, {"4294967297", INT32_MAX}};
  for (const CountCase& c : cases) {
    tarn_serv_threads_reset();
    EnvGuard g("OMP_NUM_THREADS", c.value);
    start();
    EXPECT_EQ(__omp_num_threads, c.stored) << "OMP_NUM_THREADS=\"" << c.value << "\"";
  }
}

TEST_F(ThreadPolicy, ProgrammerCallBeforeFirstQueryBeatsEnvironment) {
  env("TARN_NUM_THREADS", "4");
  tarn_serv_set_num_threads(3);
  start();
  EXPECT_EQ(__tarn_num_threads, 3);
}

TEST_F(ThreadPolicy, EnvironmentIsReadOnce) {
  env("TARN_NUM_THREADS", "4");
  start();
  EnvGuard later("TARN_NUM_THREADS", "9");
  start();
  EXPECT_EQ(__tarn_num_threads, 4);
}

TEST_F(ThreadPolicy, SetNumThreadsZeroChangesNothing) {
  tarn_serv_set_num_threads(5);
  tarn_serv_set_num_threads(0);
  tarn_serv_set_num_threads(-3);
  EXPECT_EQ(__tarn_num_threads, 5);
}

// ---- TARN_NUM_STRIPES ---------------------------------------------------------

TEST_F(ThreadPolicy, NumStripesDigitsOnlyElseIgnored) {
  const CountCase cases[] = {{"5", 5},   {"0", 0},   {"x", -1}, {"-1", -1},
                             {"4294967296", INT32_MAX}, {"99999999999", INT32_MAX}, {"2 ", -1}};
  for (const CountCase& c : cases) {
    tarn_serv_threads_reset();
    EnvGuard g("TARN_NUM_STRIPES", c.value);
    EXPECT_EQ(tarn_serv_get_num_stripes(), c.stored) << "TARN_NUM_STRIPES=\"" << c.value << "\"";
  }
  tarn_serv_set_num_stripes(-4);
  EXPECT_EQ(tarn_serv_get_num_stripes(), -1);
  tarn_serv_set_num_stripes(6);
  EXPECT_EQ(tarn_serv_get_num_stripes(), 6);
}

// ---- TARN_DOMAIN_NUM_THREADS --------------------------------------------------

struct DomainCase {
  const char* value;
  int all, blas, fft, vml, spsolve;
};

TEST_F(ThreadPolicy, DomainListForms) {
  const DomainCase cases[] = {
      {"TARN_DOMAIN_BLAS=2, TARN_DOMAIN_FFT 3", -1, 2, 3, -1, -1},
      {"TARN_DOMAIN_BLAS=", -1, 1, -1, -1, -1},
      {"TARN_DOMAIN_BLAS=x2", -1, 1, -1, -1, -1},
      {"TARN_DOMAIN_BLAS=0", -1, -1, -1, -1, -1},
      {"TARN_DOMAIN_ALL=2", 2, -1, -1, -1, -1},
      {"TARN_DOMAIN_VML=4;TARN_DOMAIN_SPSOLVE=5", -1, -1, -1, 4, 5},
      {"\"TARN_DOMAIN_BLAS=2\"", -1, 2, -1, -1, -1},
      {"TARN_DOMAIN_BLAS = = 6", -1, 6, -1, -1, -1},
      {"  ,;:TARN_DOMAIN_FFT=7", -1, -1, 7, -1, -1},
      {"tarn_domain_blas=2", -1, -1, -1, -1, -1},
      {"TARN_DOMAIN_BLASX=2,TARN_DOMAIN_VML=3", -1, -1, -1, 3, -1},
      {"TARN_DOMAIN_BLAS=2 TARN_DOMAIN_BLAS=5", -1, 2, -1, -1, -1},
      {"TARN_DOMAIN_BLAS=4294967296,TARN_DOMAIN_FFT=99999999999", -1, INT32_MAX, INT32_MAX, -1, -1},
      {"TARN_DOMAIN_ALL=4294967297", INT32_MAX, -1, -1, -1, -1},
      {"", -1, -1, -1, -1, -1},
  };
  for (const DomainCase& c : cases) {
    tarn_serv_threads_reset();
    EnvGuard g("TARN_DOMAIN_NUM_THREADS", c.value);
    start();
    SCOPED_TRACE(c.value);
    EXPECT_EQ(__tarn_num_threads, c.all);
    EXPECT_EQ(__tarn_blas_num_threads, c.blas);
    EXPECT_EQ(__tarn_fft_num_threads, c.fft);
    EXPECT_EQ(__tarn_vml_num_threads, c.vml);
    EXPECT_EQ(__tarn_spsolve_num_threads, c.spsolve);
  }
}

TEST_F(ThreadPolicy, DomainAllDoesNotOverrideNumThreads) {
  env("TARN_NUM_THREADS", "4");
  env("TARN_DOMAIN_NUM_THREADS", "TARN_DOMAIN_ALL=2");
  start();
  EXPECT_EQ(__tarn_num_threads, 4);
}

TEST_F(ThreadPolicy, DomainSetter) {
  EXPECT_EQ(tarn_serv_domain_set_num_threads(2, TARN_DOMAIN_BLAS), 1);
  EXPECT_EQ(__tarn_blas_num_threads, 2);
  EXPECT_EQ(tarn_serv_domain_set_num_threads(0, TARN_DOMAIN_FFT), 1);
  EXPECT_EQ(__tarn_fft_num_threads, 0);
  EXPECT_EQ(tarn_serv_domain_set_num_threads(3, TARN_DOMAIN_ALL), 1);
  EXPECT_EQ(__tarn_num_threads, 3);
  EXPECT_EQ(tarn_serv_domain_set_num_threads(-1, TARN_DOMAIN_BLAS), 0);
  EXPECT_EQ(tarn_serv_domain_set_num_threads(2, 5), 0);
  EXPECT_EQ(tarn_serv_domain_set_num_threads(2, -1), 0);
  EXPECT_EQ(__tarn_blas_num_threads, 2);
}

// ---- TARN_DYNAMIC ------------------------------------------------------------

TEST_F(ThreadPolicy, DynamicOnlyTheWordFalseTurnsItOff) {
  struct {
    const char* value;
    int dynamic;
  } const cases[] = {{nullptr, 1}, {"FALSE", 0}, {"false", 0}, {"  'false'", 0}, {"\"FALSE\" x", 0},
                     {"0", 1},     {"False", 1}, {"TRUE", 1},  {"falsey", 1},   {"no", 1}};
  for (const auto& c : cases) {
    tarn_serv_threads_reset();
    EnvGuard g("TARN_DYNAMIC", c.value);
    EXPECT_EQ(tarn_serv_get_dynamic(), c.dynamic) << (c.value ? c.value : "(unset)");
  }
}

TEST_F(ThreadPolicy, DynamicSetterBeforeQueryWins) {
  env("TARN_DYNAMIC", "true");
  tarn_serv_set_dynamic(0);
  EXPECT_EQ(tarn_serv_get_dynamic(), 0);
  tarn_serv_set_dynamic(7);
  EXPECT_EQ(tarn_serv_get_dynamic(), 1);
}

// ---- MPI variables -------------------------------------------------------------

struct PpnCase {
  std::vector<std::pair<const char*, const char*>> vars;
  int ppn;
};

TEST_F(ThreadPolicy, ProcessesPerNodeFirstPositiveWins) {
  const PpnCase cases[] = {
      {{}, -1},
      {{{"TARN_MPI_PPN", "4"}}, 4},
      {{{"TARN_MPI_PPN", "4x"}}, -1},
      {{{"TARN_MPI_PPN", "0"}, {"MPI_LOCALNRANKS", "5"}}, 5},
      {{{"TARN_MPI_PPN", "2"}, {"MPI_LOCALNRANKS", "5"}}, 2},
      {{{"VX_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "6"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "3"}}, 6},
      {{{"VX_MPI_PIN_MAPPING", "2:0 0,1 4"}}, 2},
      {{{"VX_MPI_PIN_MAPPING", "2"}}, -1},
      {{{"VX_MPI_PIN_MAPPING", "x:1"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "3"}}, 3},
      {{{"OMPI_COMM_WORLD_LOCAL_SIZE", "3 "}, {"MPI_LOCALNRANKS", "8"}}, 8},
      {{{"TARN_MPI_PPN", "4294967297"}}, INT32_MAX},
      {{{"TARN_MPI_PPN", "-4294967297"}, {"MPI_LOCALNRANKS", "8"}}, 8},
      {{{"VX_MPI_PIN_MAPPING", "4294967298:0"}}, INT32_MAX},
      {{{"MPI_LOCALNRANKS", "99999999999"}}, INT32_MAX},
  };
  for (const PpnCase& c : cases) {
    tarn_serv_threads_reset();
    std::vector<std::unique_ptr<EnvGuard>> guards;
    for (auto& [name, value] : c.vars) guards.push_back(std::make_unique<EnvGuard>(name, value));
    EXPECT_EQ(tarn_serv_mpi_get_ppn(), c.ppn) << (c.vars.empty() ? "(none)" : c.vars[0].second);
  }
}

TEST_F(ThreadPolicy, ProcessesPerNodeReadOnceEvenWhenAbsent) {
  EXPECT_EQ(tarn_serv_mpi_get_ppn(), -1);
  EnvGuard g("TARN_MPI_PPN", "4");
  EXPECT_EQ(tarn_serv_mpi_get_ppn(), -1);
}

TEST_F(ThreadPolicy, MpiThreadLevel) {
  const CountCase cases[] = {{"2", 2}, {"3", 3}, {"4", 0}, {"x", 0}, {"0", 0},
                             {"4294967298", 0}, {"4294967299", 0}};
  for (const CountCase& c : cases) {
    tarn_serv_threads_reset();
    EnvGuard g("VX_MPI_THREAD_LEVEL", c.value);
    start();
    EXPECT_EQ(__tarn_mpi_thread_level, c.stored) << c.value;
  }
}

// ---- The count a routine gets ---------------------------------------------------

// Machine facts pinned for a policy test; restored afterwards.
class PinnedCores {
 public:
  explicit PinnedCores(int cores) : saved_(__N_Physical_Cores) {
    tarn_serv_get_dynamic();  // the probe must not overwrite the pinned value later
    __N_Physical_Cores = cores;
  }
  ~PinnedCores() { __N_Physical_Cores = saved_; }

 private:
  int saved_;
};

TEST_F(ThreadPolicy, DynamicClipsExplicitRequestToCores) {
  PinnedCores cores(8);
  tarn_serv_set_num_threads(64);
  tarn_serv_set_dynamic(1);
  EXPECT_EQ(tarn_serv_get_max_threads(), 8);
  tarn_serv_set_dynamic(0);
  EXPECT_EQ(tarn_serv_get_max_threads(), 64);
}

TEST_F(ThreadPolicy, PriorityLocalThenDomainThenGeneralThenRuntime) {
  PinnedCores cores(64);
  tarn_serv_set_dynamic(0);
  omp_set_num_threads(11);
  EXPECT_EQ(tarn_serv_domain_get_max_threads(TARN_DOMAIN_BLAS), 11);
  tarn_serv_set_num_threads(7);
  EXPECT_EQ(tarn_serv_domain_get_max_threads(TARN_DOMAIN_BLAS), 7);
  tarn_serv_domain_set_num_threads(5, TARN_DOMAIN_BLAS);
  EXPECT_EQ(tarn_serv_domain_get_max_threads(TARN_DOMAIN_BLAS), 5);
  EXPECT_EQ(tarn_serv_domain_get_max_threads(TARN_DOMAIN_FFT), 7);
  EXPECT_EQ(tarn_serv_get_max_threads(), 7);
  EXPECT_EQ(tarn_serv_set_num_threads_local(3), 0);
  EXPECT_EQ(tarn_serv_domain_get_max_threads(TARN_DOMAIN_BLAS), 3);
  EXPECT_EQ(tarn_serv_get_max_threads(), 3);
  // The local count is this thread's alone.
  int other = 0;
  std::thread([&] { other = tarn_serv_get_max_threads(); }).join();
  EXPECT_EQ(other, 7);
  EXPECT_EQ(tarn_serv_set_num_threads_local(0), 3);
  EXPECT_EQ(tarn_serv_get_max_threads(), 7);
  // A domain count of 0 hands the decision back.
  tarn_serv_domain_set_num_threads(0, TARN_DOMAIN_BLAS);
  EXPECT_EQ(tarn_serv_domain_get_max_threads(TARN_DOMAIN_BLAS), 7);
}

void local_count_in_region(int32_t*, int32_t*, void* out) {
  *static_cast<int*>(out) = tarn_serv_get_max_threads();
}

TEST_F(ThreadPolicy, LocalCountHoldsInsideRegionWithDynamicOn) {
  PinnedCores cores(8);
  tarn_serv_set_dynamic(1);
  int previous = tarn_serv_set_num_threads_local(3);
  int seen = 0;
  ident_t loc = {0, 0, 0, 0, ";test;region;1;1;;"};
  __vosc_fork_call(&loc, 1, reinterpret_cast<vosc_micro>(local_count_in_region), &seen);
  EXPECT_EQ(seen, 3);
  tarn_serv_set_num_threads_local(previous);
}

TEST_F(ThreadPolicy, MpiProcessWithoutRequestRunsAlone) {
  env("TARN_MPI_PPN", "2");
  PinnedCores cores(8);
  omp_set_num_threads(8);
  EXPECT_EQ(tarn_serv_get_dynamic(), 1);
  EXPECT_EQ(tarn_serv_get_max_threads(), 1);
  // An explicit request lifts it to the clipped count.
  tarn_serv_set_num_threads(16);
  EXPECT_EQ(tarn_serv_get_max_threads(), 8);
}

TEST_F(ThreadPolicy, MpiThreadLevelSharesCoresAmongProcesses) {
  env("TARN_MPI_PPN", "2");
  env("VX_MPI_THREAD_LEVEL", "1");
  PinnedCores cores(8);
  omp_set_num_threads(8);
  EXPECT_EQ(tarn_serv_get_max_threads(), 4);
  omp_set_num_threads(3);
  EXPECT_EQ(tarn_serv_get_max_threads(), 3);
}

TEST_F(ThreadPolicy, OmpNumThreadsCountsAsExplicitForMpi) {
  env("TARN_MPI_PPN", "2");
  env("OMP_NUM_THREADS", "6");
  PinnedCores cores(8);
  omp_set_num_threads(6);
  EXPECT_EQ(tarn_serv_get_max_threads(), 6);
}

TEST_F(ThreadPolicy, MpiSafetyDecidesWhenKnown) {
  env("TARN_MPI_PPN", "2");
  PinnedCores cores(8);
  omp_set_num_threads(12);
  tarn_serv_mpi_safe(1);
  EXPECT_EQ(tarn_serv_get_max_threads(), 8);
  tarn_serv_mpi_safe(0);
  EXPECT_EQ(tarn_serv_get_max_threads(), 1);
  tarn_serv_mpi_safe(2);  // anything but 1 means not safe
  EXPECT_EQ(__mpi_SAFETY_BLACS, 0);
}

TEST_F(ThreadPolicy, SmallQueries) {
  EXPECT_EQ(tarn_serv_get_thread_layer(), 0);
  EXPECT_EQ(tarn_serv_omp_in_parallel(), omp_in_parallel());
}

// ---- Machine facts ---------------------------------------------------------------

TEST_F(ThreadPolicy, MachineFactsAreConsistent) {
  const int packages = tarn_serv_get_ncpus();
  const int per_package = tarn_serv_get_ncorespercpu();
  const int logical = tarn_serv_get_nlogicalcores();
  EXPECT_GE(packages, 1);
  EXPECT_GE(per_package, 1);
  EXPECT_EQ(packages * per_package, __N_Physical_Cores);
  EXPECT_GE(logical, __N_Physical_Cores);
  EXPECT_EQ(tarn_serv_get_ht(), logical != __N_Physical_Cores ? 1 : 0);
  EXPECT_GT(tarnaff_len, 0);
  EXPECT_EQ(api_probe_is_called, 1);
}

TEST_F(ThreadPolicy, ProbeRestoresAffinityAndAnswersAlike) {
  int first[3];
  count_cores_impl(&first[0], &first[1], &first[2]);
  // A fresh probe runs in a child so that this process keeps its own state.
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    cpu_set_t before, after;
    sched_getaffinity(0, sizeof(before), &before);
    api_probe_is_called = 0;
    int again[3];
    count_cores_impl(&again[0], &again[1], &again[2]);
    sched_getaffinity(0, sizeof(after), &after);
    bool same_mask = CPU_EQUAL(&before, &after);
    bool same_answer = std::memcmp(first, again, sizeof(first)) == 0;
    _exit(same_mask && same_answer ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  // A second call in the same process answers from the first probe.
  int second[3];
  count_cores_impl(&second[0], &second[1], &second[2]);
  EXPECT_EQ(std::memcmp(first, second, sizeof(first)), 0);
}

}  // namespace
