// Interim form of the trace: off unless switched on by a call; the full
// reading of the environment and the status line replace it.
#include "service/verbose.h"

#include <cstdio>
#include <cstring>

namespace {
int tarn_verbose_val = 0;
constexpr const char kVersionText[] =
    "Vexan(R) Tarn Library Version 2020.0.2 Product Build 20200624 for 32-bit applications";
}  // namespace

extern "C" {

int* tarn_serv_verbose_mode(void) { return &tarn_verbose_val; }
int* tarn_serv_iface_verbose_mode(void) { return tarn_serv_verbose_mode(); }
int tarn_serv_verbose(int mode) {
  if (mode != 0 && mode != 1) return -1;
  tarn_verbose_val = mode;
  return tarn_verbose_val;
}
const char* tarn_serv_verbose_output_file_mode(void) { return ""; }
int tarn_serv_verbose_output_file(const char*) { return 1; }
void tarn_serv_print_verbose_info(int, const char* text, double seconds) {
  std::printf("TARN_VERBOSE %s %.2fs\n", text ? text : "", seconds);
}
void tarn_serv_iface_print_verbose_info(int iface, const char* text, double seconds) {
  tarn_serv_print_verbose_info(iface, text, seconds);
}
void tarn_serv_get_version(tarn_version* r) {
  if (!r) return;
  *r = {2020, 0, 2, "Product", "20200624", "Vexan(R) Architecture processors", "32-bit"};
}
void TarnGetVerItems(char* buffer) { std::strcpy(buffer, kVersionText); }
void tarn_serv_get_version_string(char* buffer, int length) {
  const int n = static_cast<int>(sizeof(kVersionText) - 1);
  for (int i = 0; i < length; ++i) buffer[i] = i < n ? kVersionText[i] : ' ';
}
void tarn_serv_get_version_string_c(char* buffer, int length) {
  const int n = static_cast<int>(sizeof(kVersionText) - 1);
  if (length >= 1 && length <= n) {
    std::memcpy(buffer, kVersionText, length - 1);
    buffer[length - 1] = 0;
  } else {
    std::memcpy(buffer, kVersionText, n + 1);
  }
}

}  // extern "C"
