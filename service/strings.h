// Bounded string, memory and stdio wrappers of the service layer, and the
// small Fortran-style text helpers.
//
// The bounded routines resemble the C11 Annex K routines of the same names.
// They report by return value and, for the string and memory checks, through
// a constraint handler that is called as (message, nullptr, code); an empty
// handler slot behaves as tarn_serv_ignore_handler_s.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// Limits of the bounded family.
inline constexpr std::size_t kTarnStrMaxLen = 4096;
inline constexpr std::size_t kTarnMemMaxLen = 0x10000000;

// Error codes, also the return values of the bounded routines.
inline constexpr int kTarnEsnull = 400;   // null pointer
inline constexpr int kTarnEszero = 401;   // zero length
inline constexpr int kTarnEslemax = 403;  // length over the limit
inline constexpr int kTarnEsovrlp = 404;  // overlapping objects
inline constexpr int kTarnEsnospc = 406;  // not enough space
inline constexpr int kTarnEsunterm = 407; // unterminated string

extern "C" {

typedef void (*tarn_constraint_handler_t)(const char* message, void* ptr, int error);

// Constraint handlers; string and memory handlers are kept apart. Setting
// null stores tarn_serv_ignore_handler_s. Both return the previous handler
// (null while none was ever set).
tarn_constraint_handler_t tarn_serv_set_str_constraint_handler_s(tarn_constraint_handler_t handler);
tarn_constraint_handler_t tarn_serv_set_mem_constraint_handler_s(tarn_constraint_handler_t handler);
void tarn_serv_invoke_safe_str_constraint_handler(const char* message, void* ptr, int error);
void tarn_serv_invoke_safe_mem_constraint_handler(const char* message, void* ptr, int error);
void tarn_serv_ignore_handler_s(const char* message, void* ptr, int error);

// Strings.
std::size_t tarn_serv_strnlen_s(const char* s, std::size_t dmax);
int tarn_serv_strncpy_s(char* dest, std::size_t dmax, const char* src, std::size_t slen);
int tarn_serv_strncat_s(char* dest, std::size_t dmax, const char* src, std::size_t slen);
char* tarn_serv_strtok_s(char* s, std::size_t* dmax, const char* delim, char** ptr);

// Memory.
int tarn_serv_memcpy_s(void* dest, std::size_t dmax, const void* src, std::size_t smax);
void tarn_serv_mem_prim_set(void* dest, std::size_t len, std::uint8_t value);
void tarn_serv_mem_prim_move(void* dest, const void* src, std::size_t len);

// Formatted output.
int tarn_serv_printf_s(const char* format, ...) __attribute__((format(printf, 1, 2)));
int tarn_serv_fprintf_s(FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));
int tarn_serv_fprintf_stdout_s(const char* format, ...) __attribute__((format(printf, 1, 2)));
int tarn_serv_fprintf_stderr_s(const char* format, ...) __attribute__((format(printf, 1, 2)));
int tarn_serv_vfprintf_s(FILE* stream, const char* format, va_list args);
int tarn_serv_vfprintf_stdout_s(const char* format, va_list args);
int tarn_serv_vfprintf_stderr_s(const char* format, va_list args);
int tarn_serv_vsprintf_s(char* s, std::size_t size, const char* format, va_list args);
int tarn_serv_sprintf_s(char* s, std::size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));
int tarn_serv_vsnprintf_s(char* s, std::size_t size, std::size_t count, const char* format, va_list args);
int tarn_serv_snprintf_s(char* s, std::size_t size, std::size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Formatted input.
int tarn_serv_sscanf_s(const char* s, const char* format, ...) __attribute__((format(scanf, 2, 3)));
int tarn_serv_fscanf_s(FILE* stream, const char* format, ...) __attribute__((format(scanf, 2, 3)));

// Integers read as the C library reads them where long is 32 bits, in every
// build: strtol, strtoul and fscanf's "%i" with their blanks, signs, bases
// and end pointer, but a value beyond the 32-bit range saturates at its limit
// and sets errno to ERANGE. The fscanf form returns fscanf's count and
// leaves *value alone unless it is 1.
int32_t tarn_serv_strtol_as_long32(const char* s, char** end, int base);
uint32_t tarn_serv_strtoul_as_ulong32(const char* s, char** end, int base);
int tarn_serv_fscanf_i_as_long32(FILE* stream, int32_t* value);

// Files.
FILE* tarn_serv_fopen(const char* name, const char* mode);
int tarn_serv_fclose(FILE* stream);

// Fortran-style helpers. lsame compares the first characters ignoring ASCII
// case (false for a null pointer); strcpy copies min(destlen, srclen) bytes
// and pads the rest of dest with blanks; strcat2 does the same for the
// concatenation of two sources.
int tarn_serv_lsame(const char* a, const char* b);
void tarn_serv_strcpy(char* dest, const char* src, int destlen, int srclen);
void tarn_serv_strcat2(char* dest, const char* src1, const char* src2, int destlen, int src1len, int src2len);

}  // extern "C"
