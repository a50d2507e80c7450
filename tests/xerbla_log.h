// A xerbla handler that records each call instead of printing it, for the
// tests of the routines' argument checks.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "service/messages.h"

namespace xerbla_log {

struct XerblaCall {
  std::string name;
  int info;
};
inline std::vector<XerblaCall> g_xerbla_calls;

inline void record_xerbla(const char* name, const int* info, int namelen) {
  g_xerbla_calls.push_back({std::string(name, static_cast<size_t>(namelen)), *info});
}

// While it lives, calls are recorded (starting from an empty record); the
// handler before it is put back at its end.
class XerblaRecording {
 public:
  XerblaRecording() : old_(tarn_serv_set_xerbla(record_xerbla)) { g_xerbla_calls.clear(); }
  ~XerblaRecording() { tarn_serv_set_xerbla(old_); }
  XerblaRecording(const XerblaRecording&) = delete;
  XerblaRecording& operator=(const XerblaRecording&) = delete;

 private:
  tarn_xerbla_fn old_;
};

}  // namespace xerbla_log
