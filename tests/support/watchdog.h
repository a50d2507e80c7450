// A test that waits on threads runs under a watchdog: if the test has not
// finished within its budget, the process prints what hung and exits with a
// failure, so a deadlock fails that test instead of stalling the suite.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace test {

class Watchdog {
 public:
  explicit Watchdog(const char* what, std::chrono::milliseconds budget = std::chrono::seconds(60))
      : what_(what), thread_([this, budget] { run(budget); }) {}
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> hold(mutex_);
      done_ = true;
    }
    cv_.notify_one();
    thread_.join();
  }

 private:
  void run(std::chrono::milliseconds budget) {
    std::unique_lock<std::mutex> hold(mutex_);
    if (!cv_.wait_for(hold, budget, [this] { return done_; })) {
      std::fprintf(stderr, "watchdog: \"%s\" still running after %lld ms; giving up\n", what_,
                   static_cast<long long>(budget.count()));
      std::fflush(stderr);
      std::_Exit(86);
    }
  }

  const char* what_;
  std::mutex mutex_;
  std::condition_variable cv_;
  bool done_ = false;
  std::thread thread_;
};

}  // namespace test
