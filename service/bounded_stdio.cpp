// Formatted output and input of the bounded family, and the file wrappers.
// Only the *sprintf_s forms and fprintf_s bound their output; the others
// pass straight to the C library.
#include <cstdint>
#include <cstdio>

#include "service/strings.h"

namespace {

// Largest limit vsprintf_s hands to vsnprintf.
constexpr std::size_t kSprintfLimitMax = 0x80000000u;
// Stack buffer of fprintf_s; a longer text comes out empty.
constexpr std::size_t kFprintfBuffer = 1024;

// The count that asks vsnprintf_s to truncate instead of failing.
constexpr bool is_truncate_count(std::size_t count) {
    return count == static_cast<std::size_t>(0xFFFFFFFFu) || count == SIZE_MAX;
}

}  // namespace

extern "C" {

int tarn_serv_vfprintf_s(FILE* stream, const char* format, va_list args) {
    return std::vfprintf(stream, format, args);
}

int tarn_serv_vfprintf_stdout_s(const char* format, va_list args) { return std::vfprintf(stdout, format, args); }

int tarn_serv_vfprintf_stderr_s(const char* format, va_list args) { return std::vfprintf(stderr, format, args); }

int tarn_serv_printf_s(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = std::vfprintf(stdout, format, args);
    va_end(args);
    return result;
}

int tarn_serv_fprintf_stdout_s(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = std::vfprintf(stdout, format, args);
    va_end(args);
    return result;
}

int tarn_serv_fprintf_stderr_s(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = std::vfprintf(stderr, format, args);
    va_end(args);
    return result;
}

int tarn_serv_vsprintf_s(char* s, std::size_t size, const char* format, va_list args) {
    if (s == nullptr || format == nullptr || size == 0) return -1;
    const std::size_t limit = size < kSprintfLimitMax ? size : kSprintfLimitMax;
    const int written = std::vsnprintf(s, limit, format, args);
    s[limit - 1] = '\0';
    if (written < 0 || static_cast<std::size_t>(written) >= limit) {
        s[0] = '\0';
        return -1;
    }
    return written;
}

int tarn_serv_sprintf_s(char* s, std::size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = tarn_serv_vsprintf_s(s, size, format, args);
    va_end(args);
    return result;
}

int tarn_serv_vsnprintf_s(char* s, std::size_t size, std::size_t count, const char* format, va_list args) {
    if (s == nullptr || format == nullptr || size == 0) return -1;
    const bool truncate = is_truncate_count(count);
    const std::size_t limit = (truncate || count >= size) ? size : count + 1;
    const int written = std::vsnprintf(s, limit, format, args);
    if (written < 0) {
        s[0] = '\0';
        return -1;
    }
    const auto length = static_cast<std::size_t>(written);
    // Cut at the caller's count: the cut text stays.
    if (length > count && count < size) return -1;
    if (length >= size) {
        if (!truncate) s[0] = '\0';
        return -1;
    }
    return written;
}

int tarn_serv_snprintf_s(char* s, std::size_t size, std::size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = tarn_serv_vsnprintf_s(s, size, count, format, args);
    va_end(args);
    return result;
}

int tarn_serv_fprintf_s(FILE* stream, const char* format, ...) {
    if (stream == nullptr) return -1;
    char buffer[kFprintfBuffer];
    va_list args;
    va_start(args, format);
    const int result = tarn_serv_vsprintf_s(buffer, sizeof(buffer), format, args);
    va_end(args);
    if (result < 0) buffer[0] = '\0';
    if (std::fputs(buffer, stream) < 0) return -1;
    return result;
}

int tarn_serv_sscanf_s(const char* s, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = std::vsscanf(s, format, args);
    va_end(args);
    return result;
}

int tarn_serv_fscanf_s(FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = std::vfscanf(stream, format, args);
    va_end(args);
    return result;
}

FILE* tarn_serv_fopen(const char* name, const char* mode) { return std::fopen(name, mode); }

int tarn_serv_fclose(FILE* stream) { return std::fclose(stream); }

}  // extern "C"
