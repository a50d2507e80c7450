// Runs a piece of code in a forked child with standard output and standard
// error sent to files, and hands back what it wrote and how it ended.
//
// The child starts from the parent's process-wide state and leaves it
// untouched, which is what the one-way state of the message service (the
// catalogue, handler slots, LANG) needs: a test that runs its body here sees
// a first use of every slot the parent never touched.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace capture {

struct Output {
    int status = -1;  // exit status, or 128 + signal
    std::string out, err;
};

inline std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline std::string make_temp_path() {
    char name[] = "/tmp/tarn_capture_XXXXXX";
    const int fd = mkstemp(name);
    if (fd >= 0) close(fd);
    return name;
}

// The body's normal return gives status 0; it may also exit by itself.
template <class Body>
Output run_in_child(Body&& body) {
    const std::string out_path = make_temp_path();
    const std::string err_path = make_temp_path();
    std::fflush(nullptr);
    Output result;
    const pid_t pid = fork();
    if (pid == 0) {
        if (!std::freopen(out_path.c_str(), "w", stdout) || !std::freopen(err_path.c_str(), "w", stderr)) _exit(121);
        body();
        std::fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid)
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = read_file(out_path);
    result.err = read_file(err_path);
    std::remove(out_path.c_str());
    std::remove(err_path.c_str());
    return result;
}

}  // namespace capture
