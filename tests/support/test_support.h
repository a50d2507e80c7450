// Shared helpers of the test programs: plain reference loops, reproducible
// random matrices, environment guards and a runner for the real binary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// Column-major m by n matrix with leading dimension ld >= m; entries outside
// the m rows are filled with a marker so that stray writes can be seen.
struct Matrix {
  int m = 0, n = 0, ld = 1;
  std::vector<double> v;
  Matrix() = default;
  Matrix(int rows, int cols, int lead = 0, double fill = 0.0);
  double& operator()(int i, int j) { return v[static_cast<size_t>(i) + static_cast<size_t>(j) * ld]; }
  double operator()(int i, int j) const { return v[static_cast<size_t>(i) + static_cast<size_t>(j) * ld]; }
  double* data() { return v.data(); }
  const double* data() const { return v.data(); }
};

// Uniform numbers in [-0.5, 0.5) from a fixed seed (splitmix64).
struct Random {
  uint64_t state;
  explicit Random(uint64_t seed = 1) : state(seed) {}
  uint64_t next();
  double uniform();  // [-0.5, 0.5)
};
void fill_random(Matrix& a, Random& r);
// An m by n matrix with leading dimension ld, random in its m rows from the
// given seed, `pad` in the rows beyond them.
Matrix random_matrix(int m, int n, int ld, uint64_t seed, double pad = 0.0);

// C := alpha * op(A) * op(B) + beta * C, by the textbook triple loop; beta 0
// does not read C.
void ref_dgemm(char ta, char tb, int m, int n, int k, double alpha, const double* a, int lda,
               const double* b, int ldb, double beta, double* c, int ldc);

// Unblocked right-looking LU with partial pivoting (first maximum wins, NaN
// handled as by the BLAS pivot search: the first NaN is taken). Returns info.
int ref_dgetrf(int m, int n, double* a, int lda, int* ipiv);

// Largest |x - y| scaled by the largest |y| (0 if both are empty).
double max_rel_diff(const Matrix& x, const Matrix& y);

// Where element (i, p) of a packed GEMM block lies: `len` rows (or columns)
// as whole panels of `tile`, then panels of the binary digits of the rest,
// largest first, each panel `depth` slices of its own height.
inline int packed_offset(int i, int p, int len, int depth, int tile) {
  int start = 0, h = tile;
  for (;;) {
    h = len - start >= tile ? tile : 1;
    while (h < tile && 2 * h <= len - start) h *= 2;
    if (i < start + h) return start * depth + p * h + (i - start);
    start += h;
  }
}

// A matrix whose columns lie `ld` elements apart in a reservation of address
// space that is backed only where it is touched, so that element offsets pass
// 2^31 (and byte offsets 2^32) at the cost of a page or so per column. Where
// the address space is too small for it (the i386 build), data() is null.
class FarMatrix {
 public:
  FarMatrix(int rows, int cols, int lead);
  ~FarMatrix();
  FarMatrix(const FarMatrix&) = delete;
  FarMatrix& operator=(const FarMatrix&) = delete;

  // Whether this build's address space can hold far matrices at all.
  static bool possible() { return sizeof(void*) >= 8; }

  double* data() { return base_; }
  double& operator()(int i, int j) { return base_[i + static_cast<std::ptrdiff_t>(j) * ld]; }
  // The m by n values of `a`, and back into a compact matrix (ld = m).
  void load(const Matrix& a);
  Matrix compact() const;

  const int m, n, ld;

 private:
  double* base_ = nullptr;
  std::size_t bytes_ = 0;
};

// Sets an environment variable for the lifetime of the guard and restores
// the old value (or its absence) afterwards.
class EnvGuard {
 public:
  EnvGuard(const char* name, const char* value);  // value null: unset
  ~EnvGuard();
  EnvGuard(const EnvGuard&) = delete;
  EnvGuard& operator=(const EnvGuard&) = delete;

 private:
  std::string name_;
  bool had_ = false;
  std::string old_;
};

struct RunResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out, err;
};

// The command that runs this build's programs: empty where they run
// natively, the user-mode emulator's words where the kernel refuses them.
const std::vector<std::string>& emulator();
inline bool under_emulation() { return !emulator().empty(); }

// The words that start `program`: behind the emulator when it is a program
// of this build and the build has one.
std::vector<std::string> command_for(const std::string& program);
// The same, as one line for a shell.
std::string shell_command_for(const std::string& program);

// Runs a program with arguments, the given text on standard input (no
// terminal), extra environment entries "NAME=value" (a bare "NAME" unsets),
// in the directory dir (empty: the current one). A program of this build
// runs the way command_for starts it.
RunResult run_program(const std::string& program, const std::vector<std::string>& args,
                      const std::string& input = "",
                      const std::vector<std::string>& env = {}, const std::string& dir = "");

// Writes text to a fresh temporary file and returns its path.
std::string write_temp_file(const std::string& text, const std::string& suffix = "");

}  // namespace testsupport
