// Optional trace of top-level numerical calls and the version of the library.
#pragma once

extern "C" {

// Version record, filled by tarn_serv_get_version.
struct tarn_version {
  int major_version;
  int minor_version;
  int update_version;
  const char* product_status;
  const char* build;
  const char* processor;
  const char* platform;
};

// Pointer to the mode word (0 or 1), reading TARN_VERBOSE on first use.
// Callers keep the pointer and test the word on each call.
int* tarn_serv_verbose_mode(void);
int* tarn_serv_iface_verbose_mode(void);
// 0 or 1 sets the mode and returns it; any other value returns -1.
int tarn_serv_verbose(int mode);

// Output file of the trace, empty for standard output; reads
// TARN_VERBOSE_OUTPUT_FILE on first use.
const char* tarn_serv_verbose_output_file_mode(void);
// 0 on success, 1 on failure (too long, empty or not writable).
int tarn_serv_verbose_output_file(const char* path);

// One trace line: the call's description, its time and the status of the
// library; the header line comes once per process before the first line.
void tarn_serv_print_verbose_info(int iface, const char* text, double seconds);
void tarn_serv_iface_print_verbose_info(int iface, const char* text, double seconds);

// Does nothing for a null record.
void tarn_serv_get_version(tarn_version* record);
// Blank padded, not terminated (Fortran form).
void tarn_serv_get_version_string(char* buffer, int length);
// Terminated C form.
void tarn_serv_get_version_string_c(char* buffer, int length);
// Composes the version text into a buffer of at least 512 bytes.
void TarnGetVerItems(char* buffer);

}  // extern "C"
