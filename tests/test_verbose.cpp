// Verbose mode: the switch and its reading, the output file, the trace
// line's format, the header printed once per process, and the version
// record and texts. What is read once per process is checked in child
// processes of this same program.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "service/cpu.h"
#include "service/threads.h"
#include "service/verbose.h"
#include "tests/support/test_support.h"

namespace {

std::string read_file(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<std::string> lines_of(const std::string& text, const std::string& prefix) {
  std::vector<std::string> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(prefix, 0) == 0) out.push_back(line);
  return out;
}

// The trace lines of a file written by this process (the header may or may
// not be among them, depending on what ran before).
std::vector<std::string> trace_lines(const std::string& text) {
  std::vector<std::string> out;
  for (const std::string& l : lines_of(text, "TARN_VERBOSE "))
    if (l.rfind("TARN_VERBOSE Vexan(R) TARN ", 0) != 0) out.push_back(l);
  return out;
}

// The platform the build runs on, as the texts name it.
const std::string kPlatform = sizeof(void*) == 8 ? "64-bit" : "32-bit";

const std::regex kHeader(
    R"(TARN_VERBOSE Vexan\(R\) TARN 2020\.0 Update 2 Product build 20200624 for )" + kPlatform +
    R"( (.+) \d+\.\d\dGHz( [a-z0-9]+)? vexan_thread)");

// Prints one trace line into a fresh file and returns that line.
std::string traced(const char* text, double seconds) {
  const std::string path = testsupport::write_temp_file("", ".log");
  EXPECT_EQ(tarn_serv_verbose_output_file(path.c_str()), 0);
  tarn_serv_print_verbose_info(0, text, seconds);
  const std::vector<std::string> lines = trace_lines(read_file(path));
  unlink(path.c_str());
  EXPECT_EQ(lines.size(), 1u);
  return lines.empty() ? "" : lines.back();
}

// ---- Child processes ------------------------------------------------------------
// The child halves are disabled in a normal run; the parent runs each in a
// fresh process of this program with the environment under test.

bool in_child() { return std::getenv("TARN_VERBOSE_CHILD") != nullptr; }

std::string own_path() {
  char path[4096];
  const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string("/proc/self/exe");
}

testsupport::RunResult run_child(const std::string& test, std::vector<std::string> env) {
  env.push_back("TARN_VERBOSE_CHILD=1");
  const testsupport::RunResult r =
      testsupport::run_program(own_path(),
                               {"--gtest_also_run_disabled_tests", "--gtest_filter=VerboseChild." + test},
                               "", env);
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  return r;
}

TEST(VerboseChild, DISABLED_ReportMode) {
  if (!in_child()) GTEST_SKIP();
  std::printf("mode=%d\n", *tarn_serv_iface_verbose_mode());
}

TEST(VerboseChild, DISABLED_ManyThreadsPrint) {
  if (!in_child()) GTEST_SKIP();
  const char* iface = std::getenv("VERBOSE_IFACE");
  const int n = iface ? std::atoi(iface) : 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([n, t] {
      char text[64];
      for (int i = 0; i < 25; ++i) {
        std::snprintf(text, sizeof text, "DGETRF(%d,%d)", t, i);
        tarn_serv_print_verbose_info(n, text, 0.5);
      }
    });
  for (auto& th : threads) th.join();
  tarn_version v;
  tarn_serv_get_version(&v);
  std::printf("processor=%s\n", v.processor);
}

TEST(VerboseChild, DISABLED_OneLine) {
  if (!in_child()) GTEST_SKIP();
  tarn_serv_print_verbose_info(0, "DGETRS(N,1,1,0x0,1,0x0,0x0,1,0)", 1.5);
}

TEST(VerboseChild, DISABLED_FileVanishes) {
  if (!in_child()) GTEST_SKIP();
  char dir[] = "/tmp/tarn_verbose_XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string path = std::string(dir) + "/trace.log";
  ASSERT_EQ(tarn_serv_verbose_output_file(path.c_str()), 0);
  unlink(path.c_str());
  rmdir(dir);
  tarn_serv_print_verbose_info(0, "DLAMCH(E)", 0.0);
}

int mode_for(const char* value) {
  std::vector<std::string> env;
  env.push_back(value ? std::string("TARN_VERBOSE=") + value : std::string("TARN_VERBOSE"));
  const testsupport::RunResult r = run_child("DISABLED_ReportMode", env);
  const size_t at = r.out.find("mode=");
  return at == std::string::npos ? -99 : std::atoi(r.out.c_str() + at + 5);
}

// ---- The switch -------------------------------------------------------------------

TEST(VerboseMode, EnvironmentNeedsWholeValueOfZeroOrOne) {
  struct Case {
    const char* value;
    int mode;
  } cases[] = {{"1", 1},           {"0", 0},          {"0x1", 1},         {"01", 1},
               {"2", 0},           {"1x", 0},         {"-1", 0},          {"yes", 0},
               {"", 0},            {nullptr, 0},      {"0x0", 0},         {"4294967297", 0},
               {"0x100000001", 0}, {"-4294967295", 0}, {"18446744073709551617", 0}};
  for (const Case& c : cases) EXPECT_EQ(mode_for(c.value), c.mode) << (c.value ? c.value : "unset");
}

TEST(VerboseMode, SetterTakesOnlyZeroOrOne) {
  int* word = tarn_serv_verbose_mode();
  EXPECT_EQ(tarn_serv_iface_verbose_mode(), word);
  EXPECT_EQ(tarn_serv_verbose(1), 1);
  EXPECT_EQ(*word, 1);
  EXPECT_EQ(tarn_serv_verbose(2), -1);
  EXPECT_EQ(*word, 1);
  EXPECT_EQ(tarn_serv_verbose(-1), -1);
  EXPECT_EQ(tarn_serv_verbose(0), 0);
  EXPECT_EQ(*word, 0);
}

// ---- The trace line ---------------------------------------------------------------

TEST(VerboseLine, TimeUnitsFollowTheMagnitude) {
  struct Case {
    double seconds;
    const char* shown;
  } cases[] = {
      {0.25, "250.00ms"}, {1.5, "1.50s"},    {1.0, "1000.00ms"}, {0.0, "0.00s"},
      {-2.0, "0.00s"},    {123.456, "123.46s"}, {2.5e-4, "250.00us"}, {3e-6, "3.00us"},
      {5e-8, "50ns"},     {4e-3, "4.00ms"},
  };
  for (const Case& c : cases) {
    const std::string line = traced("DLAMCH(E)", c.seconds);
    EXPECT_EQ(line.rfind(std::string("TARN_VERBOSE DLAMCH(E) ") + c.shown + " CNR:", 0), 0u)
        << c.seconds << ": " << line;
  }
}

TEST(VerboseLine, StatusFieldsInOrder) {
  const std::string line = traced("DGETRF(4,4,0x1,4,0x2,0)", 0.25);
  const std::regex format(
      R"(TARN_VERBOSE DGETRF\(4,4,0x1,4,0x2,0\) 250\.00ms CNR:([A-Z0-9_?]+)(,STRICT)? )"
      R"(Dyn:(\d+) FastMM:1 TID:0  NThr:(\d+)(,[A-Z]+:\d+)*)");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(line, m, format)) << line;
  if (tarn_serv_cbwr_get(1) == 1) {
    EXPECT_EQ(m[1].str(), "OFF");
  }
  EXPECT_EQ(std::stoi(m[3].str()), tarn_serv_get_dynamic());
  EXPECT_EQ(std::stoi(m[4].str()), tarn_serv_get_max_threads());
}

TEST(VerboseLine, DomainsAppearOnlyWhenTheyDiffer) {
  const int dynamic = tarn_serv_get_dynamic();
  tarn_serv_set_dynamic(0);
  tarn_serv_set_num_threads(3);
  for (int d = TARN_DOMAIN_BLAS; d <= TARN_DOMAIN_SPSOLVE; ++d) tarn_serv_domain_set_num_threads(3, d);
  std::string line = traced("X", 1.5);
  EXPECT_EQ(line.substr(line.size() - 7), " NThr:3") << line;
  tarn_serv_domain_set_num_threads(2, TARN_DOMAIN_BLAS);
  tarn_serv_domain_set_num_threads(5, TARN_DOMAIN_VML);
  tarn_serv_domain_set_num_threads(1, TARN_DOMAIN_SPSOLVE);
  line = traced("X", 1.5);
  EXPECT_EQ(line.substr(line.find(" NThr:")), " NThr:3,BLAS:2,VML:5,SPSOLVE:1") << line;
  tarn_serv_domain_set_num_threads(4, TARN_DOMAIN_FFT);
  line = traced("X", 1.5);
  EXPECT_EQ(line.substr(line.find(" NThr:")), " NThr:3,BLAS:2,FFT:4,VML:5,SPSOLVE:1") << line;
  for (int d = TARN_DOMAIN_BLAS; d <= TARN_DOMAIN_SPSOLVE; ++d) tarn_serv_domain_set_num_threads(0, d);
  tarn_serv_set_dynamic(dynamic);
}

TEST(VerboseLine, ReproducibilityModeIsNamed) {
  struct Case {
    const char* cbwr;
    const char* shown;
  } cases[] = {{"COMPATIBLE", "CNR:COMPATIBLE "},
               {"COMPATIBLE,STRICT", "CNR:COMPATIBLE,STRICT "},
               {"SSE2", "CNR:SSE2 "},
               {"AUTO", "CNR:AUTO "}};
  for (const Case& c : cases) {
    const testsupport::RunResult r =
        run_child("DISABLED_OneLine", {std::string("TARN_CBWR=") + c.cbwr, "TARN_VERBOSE_OUTPUT_FILE"});
    const std::vector<std::string> lines = trace_lines(r.out);
    ASSERT_EQ(lines.size(), 1u) << r.out;
    EXPECT_NE(lines[0].find(std::string(" 1.50s ") + c.shown), std::string::npos) << lines[0];
  }
}

TEST(VerboseLine, CacheSwitchShowsAsFastMm) {
  const testsupport::RunResult r =
      run_child("DISABLED_OneLine", {"TARN_DISABLE_FAST_MM=1", "TARN_VERBOSE_OUTPUT_FILE"});
  EXPECT_NE(r.out.find(" FastMM:0 "), std::string::npos) << r.out;
}

// ---- Header and concurrency ---------------------------------------------------------

TEST(VerboseHeader, OnceBeforeWholeLinesOfManyThreads) {
  const testsupport::RunResult r = run_child("DISABLED_ManyThreadsPrint", {"TARN_VERBOSE_OUTPUT_FILE"});
  const std::vector<std::string> lines = lines_of(r.out, "TARN_VERBOSE");
  ASSERT_EQ(lines.size(), 101u) << r.out;
  std::smatch m;
  ASSERT_TRUE(std::regex_match(lines[0], m, kHeader)) << lines[0];
  // The processor text of the child's own version record (a dynamic checker
  // may show the parent another processor).
  EXPECT_NE(r.out.find("processor=" + m[1].str() + "\n"), std::string::npos) << r.out;
  EXPECT_EQ(m[2].str(), "");  // interface 0 is not named
  const std::regex line(
      R"(TARN_VERBOSE DGETRF\([0-3],\d+\) 500\.00ms CNR:\S+ Dyn:\d+ FastMM:[01] TID:0  NThr:\S+)");
  for (size_t i = 1; i < lines.size(); ++i) EXPECT_TRUE(std::regex_match(lines[i], line)) << lines[i];
}

TEST(VerboseHeader, NamesTheInterface) {
  struct Case {
    const char* iface;
    const char* name;
  } cases[] = {{"-2", " stdcall"}, {"-1", " cdecl"}, {"1", " lp64"}, {"2", " ilp64"}, {"26", " iface1a"}};
  for (const Case& c : cases) {
    const testsupport::RunResult r = run_child(
        "DISABLED_ManyThreadsPrint", {std::string("VERBOSE_IFACE=") + c.iface, "TARN_VERBOSE_OUTPUT_FILE"});
    const std::vector<std::string> lines = lines_of(r.out, "TARN_VERBOSE Vexan");
    ASSERT_EQ(lines.size(), 1u) << r.out;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[0], m, kHeader)) << lines[0];
    EXPECT_EQ(m[2].str(), c.name);
  }
}

// ---- Output file --------------------------------------------------------------------

TEST(VerboseFile, EnvironmentSendsLinesToTheFileByAppending) {
  const std::string path = testsupport::write_temp_file("earlier line\n", ".log");
  const testsupport::RunResult r =
      run_child("DISABLED_ManyThreadsPrint", {"TARN_VERBOSE_OUTPUT_FILE=" + path});
  EXPECT_TRUE(lines_of(r.out, "TARN_VERBOSE").empty()) << r.out;
  const std::string text = read_file(path);
  unlink(path.c_str());
  EXPECT_EQ(text.rfind("earlier line\n", 0), 0u);
  const std::vector<std::string> lines = lines_of(text, "TARN_VERBOSE");
  ASSERT_EQ(lines.size(), 101u);
  EXPECT_TRUE(std::regex_match(lines[0], kHeader)) << lines[0];
}

TEST(VerboseFile, UnwritableNameFromEnvironmentWarnsAndPrintsToStdout) {
  const testsupport::RunResult r =
      run_child("DISABLED_OneLine", {"TARN_VERBOSE_OUTPUT_FILE=/nonexistent-dir/trace.log"});
  EXPECT_NE(r.err.find("TARN_VERBOSE WARNING: Unable to open verbose output file.\n"), std::string::npos)
      << r.err;
  EXPECT_EQ(trace_lines(r.out).size(), 1u) << r.out;
}

TEST(VerboseFile, OverlongNameFromEnvironmentIsRefused) {
  const testsupport::RunResult r =
      run_child("DISABLED_OneLine", {"TARN_VERBOSE_OUTPUT_FILE=/tmp/" + std::string(5000, 'a')});
  EXPECT_NE(r.err.find("TARN_VERBOSE WARNING: incorrect output filename: too long or empty\n"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(trace_lines(r.out).size(), 1u) << r.out;
}

TEST(VerboseFile, VanishedFileFallsBackToStdout) {
  const testsupport::RunResult r = run_child("DISABLED_FileVanishes", {"TARN_VERBOSE_OUTPUT_FILE"});
  EXPECT_NE(r.err.find("TARN_VERBOSE WARNING: unable to open output file. Print to STDOUT\n"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(trace_lines(r.out).size(), 1u) << r.out;
}

TEST(VerboseFile, SetterChecksTheName) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(tarn_serv_verbose_output_file(""), 1);
  EXPECT_EQ(tarn_serv_verbose_output_file(nullptr), 1);
  EXPECT_EQ(tarn_serv_verbose_output_file("/nonexistent-dir/x.log"), 1);
  EXPECT_STREQ(tarn_serv_verbose_output_file_mode(), "");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("incorrect output filename: too long or empty"), std::string::npos) << err;
  EXPECT_NE(err.find("Unable to open verbose output file."), std::string::npos) << err;
  const std::string path = testsupport::write_temp_file("", ".log");
  EXPECT_EQ(tarn_serv_verbose_output_file(path.c_str()), 0);
  EXPECT_EQ(tarn_serv_verbose_output_file_mode(), path);
  unlink(path.c_str());
}

// ---- Version --------------------------------------------------------------------------

const std::string kVersionText =
    "Vexan(R) Tarn Library Version 2020.0.2 Product Build 20200624 for " + kPlatform + " applications";

TEST(Version, RecordFields) {
  tarn_serv_get_version(nullptr);
  tarn_version v;
  tarn_serv_get_version(&v);
  EXPECT_EQ(v.major_version, 2020);
  EXPECT_EQ(v.minor_version, 0);
  EXPECT_EQ(v.update_version, 2);
  EXPECT_STREQ(v.product_status, "Product");
  EXPECT_STREQ(v.build, "20200624");
  EXPECT_EQ(std::string(v.platform), kPlatform);
  struct Row {
    int code;
    const char* processor;
  } rows[] = {
      {2, "Vexan(R) Streaming SIMD Extensions 2 (Vexan(R) SSE2) enabled processors"},
      {4, "Vexan(R) Supplemental Streaming SIMD Extensions 3 (Vexan(R) SSSE3) enabled processors"},
      {5, "Vexan(R) Streaming SIMD Extensions 4.2 (Vexan(R) SSE4.2) enabled processors"},
      {6, "Vexan(R) Advanced Vector Extensions (Vexan(R) AVX) enabled processors"},
      {7, "Vexan(R) Advanced Vector Extensions 2 (Vexan(R) AVX2) enabled processors"},
  };
  const int code = tarn_serv_cpu_detect();
  for (const Row& r : rows)
    if (r.code == code) {
      EXPECT_STREQ(v.processor, r.processor);
    }
  if (code == 9) {
    EXPECT_NE(std::strstr(v.processor, "(Vexan(R) AVX-512)"), nullptr) << v.processor;
  }
}

TEST(Version, ItemsText) {
  char buffer[512];
  TarnGetVerItems(buffer);
  EXPECT_EQ(std::string(buffer), kVersionText);
}

TEST(Version, FortranFormIsPaddedOrCutWithoutTerminator) {
  char buffer[128];
  std::memset(buffer, '#', sizeof buffer);
  tarn_serv_get_version_string(buffer, 5);
  EXPECT_EQ(std::string(buffer, 6), "Vexan#");
  const int n = static_cast<int>(kVersionText.size());
  std::memset(buffer, '#', sizeof buffer);
  tarn_serv_get_version_string(buffer, 100);
  EXPECT_EQ(std::string(buffer, static_cast<size_t>(n)), kVersionText);
  EXPECT_EQ(std::string(buffer + n, static_cast<size_t>(100 - n)), std::string(static_cast<size_t>(100 - n), ' '));
  EXPECT_EQ(buffer[100], '#');
}

TEST(Version, CFormIsCutAndTerminated) {
  const int n = static_cast<int>(kVersionText.size());
  char buffer[128];
  std::memset(buffer, '#', sizeof buffer);
  tarn_serv_get_version_string_c(buffer, 6);
  EXPECT_STREQ(buffer, "Vexan");
  tarn_serv_get_version_string_c(buffer, 1);
  EXPECT_STREQ(buffer, "");
  tarn_serv_get_version_string_c(buffer, n);
  EXPECT_EQ(std::string(buffer), kVersionText.substr(0, static_cast<size_t>(n - 1)));
  for (int length : {0, -3, n + 1, 120}) {
    std::memset(buffer, '#', sizeof buffer);
    tarn_serv_get_version_string_c(buffer, length);
    EXPECT_EQ(std::string(buffer), kVersionText) << length;
  }
}

}  // namespace
