#include "tests/support/test_support.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <climits>
#include <cstring>
#include <sstream>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport {

Matrix::Matrix(int rows, int cols, int lead, double fill)
    : m(rows), n(cols), ld(lead > 0 ? lead : (rows > 0 ? rows : 1)),
      v(static_cast<size_t>(ld) * (cols > 0 ? cols : 0), fill) {}

uint64_t Random::next() {
  uint64_t z = (state += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

double Random::uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53 - 0.5; }

void fill_random(Matrix& a, Random& r) {
  for (int j = 0; j < a.n; ++j)
    for (int i = 0; i < a.m; ++i) a(i, j) = r.uniform();
}

void ref_dgemm(char ta, char tb, int m, int n, int k, double alpha, const double* a, int lda,
               const double* b, int ldb, double beta, double* c, int ldc) {
  const bool at = ta == 'T' || ta == 't' || ta == 'C' || ta == 'c';
  const bool bt = tb == 'T' || tb == 't' || tb == 'C' || tb == 'c';
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) {
      double s = 0.0;
      for (int l = 0; l < k; ++l) {
        const double x = at ? a[l + static_cast<size_t>(i) * lda] : a[i + static_cast<size_t>(l) * lda];
        const double y = bt ? b[j + static_cast<size_t>(l) * ldb] : b[l + static_cast<size_t>(j) * ldb];
        s += x * y;
      }
      double& cij = c[i + static_cast<size_t>(j) * ldc];
      cij = beta == 0.0 ? alpha * s : alpha * s + beta * cij;
    }
}

FarMatrix::FarMatrix(int rows, int cols, int lead) : m(rows), n(cols), ld(lead) {
  if (!possible() || rows < 1 || cols < 1 || lead < rows) return;
  bytes_ = (static_cast<std::size_t>(cols - 1) * static_cast<std::size_t>(lead) +
            static_cast<std::size_t>(rows)) *
           sizeof(double);
  void* p = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) return;
  // A huge page for each touched column would cost 2 MiB a column.
  madvise(p, bytes_, MADV_NOHUGEPAGE);
  base_ = static_cast<double*>(p);
}

FarMatrix::~FarMatrix() {
  if (base_ != nullptr) munmap(base_, bytes_);
}

void FarMatrix::load(const Matrix& a) {
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) (*this)(i, j) = a(i, j);
}

Matrix FarMatrix::compact() const {
  Matrix a(m, n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) a(i, j) = base_[i + static_cast<std::ptrdiff_t>(j) * ld];
  return a;
}

int ref_dgetrf(int m, int n, double* a, int lda, int* ipiv) {
  auto A = [&](int i, int j) -> double& { return a[i + static_cast<size_t>(j) * lda]; };
  int info = 0;
  const int mn = m < n ? m : n;
  for (int j = 0; j < mn; ++j) {
    int p = j;
    double best = std::fabs(A(j, j));
    if (!std::isnan(best))
      for (int i = j + 1; i < m; ++i) {
        const double v = std::fabs(A(i, j));
        if (std::isnan(v)) { p = i; break; }
        if (v > best) { best = v; p = i; }
      }
    ipiv[j] = p + 1;
    if (A(p, j) != 0.0) {
      if (p != j)
        for (int c = 0; c < n; ++c) std::swap(A(j, c), A(p, c));
      const double piv = A(j, j);
      for (int i = j + 1; i < m; ++i) A(i, j) /= piv;
    } else if (info == 0) {
      info = j + 1;
    }
    for (int c = j + 1; c < n; ++c)
      for (int i = j + 1; i < m; ++i) A(i, c) -= A(i, j) * A(j, c);
  }
  return info;
}

Matrix random_matrix(int m, int n, int ld, uint64_t seed, double pad) {
  Matrix a(m, n, ld, pad);
  Random r(seed);
  fill_random(a, r);
  return a;
}

double max_rel_diff(const Matrix& x, const Matrix& y) {
  double scale = 0.0, diff = 0.0;
  for (int j = 0; j < y.n; ++j)
    for (int i = 0; i < y.m; ++i) {
      scale = std::fmax(scale, std::fabs(y(i, j)));
      const double d = std::fabs(x(i, j) - y(i, j));
      diff = std::isnan(d) ? INFINITY : std::fmax(diff, d);
    }
  return scale > 0.0 ? diff / scale : diff;
}

EnvGuard::EnvGuard(const char* name, const char* value) : name_(name) {
  if (const char* old = std::getenv(name)) {
    had_ = true;
    old_ = old;
  }
  if (value) setenv(name, value, 1);
  else unsetenv(name);
}

EnvGuard::~EnvGuard() {
  if (had_) setenv(name_.c_str(), old_.c_str(), 1);
  else unsetenv(name_.c_str());
}

const std::vector<std::string>& emulator() {
  static const std::vector<std::string> words = [] {
    std::vector<std::string> w;
    std::istringstream line(LINPACK_EMULATOR);
    for (std::string word; line >> word;) w.push_back(word);
    return w;
  }();
  return words;
}

std::vector<std::string> command_for(const std::string& program) {
  std::vector<std::string> words;
  // Programs of this build lie under its directory; system tools do not.
  char resolved[PATH_MAX], build[PATH_MAX];
  const bool ours = realpath(program.c_str(), resolved) != nullptr &&
                    realpath(LINPACK_DIR, build) != nullptr &&
                    std::strncmp(resolved, build, std::strlen(build)) == 0;
  if (ours) words = emulator();
  words.push_back(program);
  return words;
}

std::string shell_command_for(const std::string& program) {
  std::string line;
  for (const std::string& w : command_for(program)) line += (line.empty() ? "" : " ") + w;
  return line;
}

namespace {
void drain(int fd, std::string& into) {
  char buf[4096];
  ssize_t k = read(fd, buf, sizeof buf);
  if (k > 0) into.append(buf, static_cast<size_t>(k));
}
}  // namespace

RunResult run_program(const std::string& program, const std::vector<std::string>& args,
                      const std::string& input, const std::vector<std::string>& env,
                      const std::string& dir) {
  RunResult r;
  std::string in_path = write_temp_file(input, ".in");
  int out_pipe[2], err_pipe[2];
  if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0) return r;
  pid_t pid = fork();
  if (pid == 0) {
    int in = open(in_path.c_str(), O_RDONLY);
    dup2(in, 0);
    dup2(out_pipe[1], 1);
    dup2(err_pipe[1], 2);
    close(out_pipe[0]);
    close(err_pipe[0]);
    if (!dir.empty() && chdir(dir.c_str()) != 0) _exit(127);
    for (const std::string& e : env) {
      const size_t eq = e.find('=');
      if (eq == std::string::npos) unsetenv(e.c_str());
      else setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
    }
    std::vector<std::string> words = command_for(program);
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (const std::string& w : words) argv.push_back(const_cast<char*>(w.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out_pipe[1]);
  close(err_pipe[1]);
  pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
  int open_fds = 2;
  while (open_fds > 0) {
    if (poll(fds, 2, -1) < 0) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
      std::string& into = i == 0 ? r.out : r.err;
      const size_t before = into.size();
      drain(fds[i].fd, into);
      if (into.size() == before) {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open_fds;
      }
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  unlink(in_path.c_str());
  return r;
}

std::string write_temp_file(const std::string& text, const std::string& suffix) {
  std::string tmpl = "/tmp/tarn_test_XXXXXX" + suffix;
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  const int fd = mkstemps(name.data(), static_cast<int>(suffix.size()));
  if (fd < 0) return "";
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t k = write(fd, text.data() + done, text.size() - done);
    if (k <= 0) break;
    done += static_cast<size_t>(k);
  }
  close(fd);
  return name.data();
}

}  // namespace testsupport
