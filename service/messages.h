// Messages and error reporting of the numerical library: the numbered
// message table with its optional catalogue, the output routines, the xerbla
// handler and its entry forms, the progress hook, the environment reader,
// process exit and the clean-up lists.
#pragma once

#include <pthread.h>

#include <cstdio>

// Message ids used outside the message module. The texts live in the table
// of service/message_table.cpp.
inline constexpr int kTarnMsgNewline = 0;
inline constexpr int kTarnMsgCannotLoad = 1;
inline constexpr int kTarnMsgBadParameter = 6;
inline constexpr int kTarnMsgCondition = 7;
inline constexpr int kTarnMsgNoWorkspace = 8;
inline constexpr int kTarnMsgIncompatibleOptions = 9;
inline constexpr int kTarnMsgAllocError = 760;
inline constexpr int kTarnMsgNotEnoughWorkMemory = 1089;
inline constexpr int kTarnMsgCbwrOn = 1207;
inline constexpr int kTarnMsgCbwrOff = 1208;
inline constexpr int kTarnMsgCbwrBadMode = 1209;
inline constexpr int kTarnMsgMinRequirements = 1210;
inline constexpr int kTarnMsgNeedSse2 = 1211;
inline constexpr int kTarnMsgCoprocessor = 1212;
inline constexpr int kTarnMsgCpuNotSupported = 1213;

// Number of rows in the message table (ids 0 to 1430).
inline constexpr int kTarnMsgCount = 1431;

// Codes handed to xerbla through *info that select a report of their own.
inline constexpr int kTarnXerblaNoWorkspace = 1000;
inline constexpr int kTarnXerblaIncompatible = 1001;

extern "C" {

// ---- Message output -------------------------------------------------------

// Prints message `id` formatted with the following arguments, then a line
// end. dest 1 is standard error, anything else standard output. nargs is the
// count of the arguments that follow; it is not read.
void tarn_serv_print(int dest, int id, int nargs, ...);

// With nargs below 1 the raw format of message `id`; otherwise the message
// formatted into a static lookup buffer. Id 0 yields "".
const char* tarn_serv_get_msg(int id, int nargs, ...);

// The output path of tarn_serv_print for a caller's own format, without a
// line end. Prints nothing with nargs below 1.
void tarn_serv_format_print(int dest, const char* format, int nargs, ...);
void tarn_serv_file_format_print(FILE* stream, const char* format, int nargs, ...);

// ---- Error handler ----------------------------------------------------------

// name: characters, not necessarily terminated; info: the code; namelen:
// the length of name.
typedef void (*tarn_xerbla_fn)(const char* name, const int* info, int namelen);

void tarn_serv_xerbla(const char* name, const int* info, int namelen);
void tarn_serv_default_xerbla(const char* name, const int* info, int namelen);
// Unconditional; returns the previous handler or the default one.
tarn_xerbla_fn tarn_serv_set_xerbla(tarn_xerbla_fn handler);
// Installs only into an empty slot (every top-level entry calls this).
void tarn_serv_set_xerbla_interface(tarn_xerbla_fn handler);
void tarn_set_xerbla_interface(tarn_xerbla_fn handler);
void tarn_serv_iface_xerbla(const char* name, const int* info, int namelen);

// The replaceable chain: each calls the next, the last the default handler.
void cdecl_xerbla(const char* name, const int* info, int namelen);
void xerbla(const char* name, const int* info, int namelen);
void xerbla_(const char* name, const int* info, int namelen);
void XERBLA_(const char* name, const int* info, int namelen);
void XERBLA(const char* name, const int* info, int namelen);

// 0 for a non-null pointer; for null, reports code 1089 with `name` through
// tarn_serv_xerbla and returns 1.
int tarn_serv_check_ptr(const void* pointer, const char* name);
// 1 for null, 0 otherwise; prints nothing. The name, where a caller gives
// one, is not used.
int tarn_serv_check_ptr_and_warn(const void* pointer, const char* name = nullptr);

// ---- Progress hook ----------------------------------------------------------

// A non-zero result asks the factorization to stop.
typedef int (*tarn_progress_fn)(const int* thread, const int* step, const char* stage, int stagelen);

int tarn_serv_progress(const int* thread, const int* step, const char* stage, int stagelen);
int tarn_serv_default_progress(const int* thread, const int* step, const char* stage, int stagelen);
// Unconditional; returns the previous hook or the default one.
tarn_progress_fn tarn_serv_set_progress(tarn_progress_fn hook);
// Installs only into an empty slot.
void tarn_serv_set_progress_interface(tarn_progress_fn hook);

int cdecl_progress(const int* thread, const int* step, const char* stage, int stagelen);
int tarn_progress(const int* thread, const int* step, const char* stage, int stagelen);
int tarn_progress_(const int* thread, const int* step, const char* stage, int stagelen);
int TARN_PROGRESS_(const int* thread, const int* step, const char* stage, int stagelen);
int TARN_PROGRESS(const int* thread, const int* step, const char* stage, int stagelen);

// ---- Environment ------------------------------------------------------------

// Length of the value if it fitted into `size` bytes with its terminator;
// 0 if unset or filtered out; minus the length if it did not fit (the buffer
// is then emptied, as for an unset name).
int tarn_serv_getenv(const char* name, char* buffer, int size);
// Mode 1 or more lets only the library-path names and LANG through.
// Returns the previous mode.
int tarn_serv_set_envmode_variable(int mode);
int tarn_serv_get_envmode_variable(void);

// ---- Exit and clean-up ------------------------------------------------------

typedef void (*tarn_exit_fn)(int code);
typedef void (*tarn_cleanup_fn)(void* argument);

// custom handler if installed, else exit(code).
void tarn_serv_exit(int code);
// Returns the previous handler (null when none).
tarn_exit_fn tarn_serv_set_exit_handler(tarn_exit_fn handler);

// Capacities of the clean-up lists; a registration beyond them ends the
// process through tarn_serv_exit(3).
inline constexpr int kTarnCoreCleanupCapacity = 32;
inline constexpr int kTarnThrCleanupCapacity = 8;
inline constexpr int kTarnCleanupOverflowExit = 3;

void tarn_serv_core_register_cleanup(tarn_cleanup_fn function, void* argument);
void tarn_serv_core_cleanup(void);
void tarn_serv_thr_register_cleanup(tarn_cleanup_fn function, void* argument);
void tarn_serv_thr_cleanup(void);

// A thread-local key as the service layer creates it; bit 0 of `flags` set
// means the key exists.
struct tarn_tls_key_t {
    pthread_key_t key;
    int flags;
};
// Registered as a clean-up function with a tarn_tls_key_t*: deletes the key
// if it exists.
void tarn_tls_destroy(void* key_record);

}  // extern "C"
