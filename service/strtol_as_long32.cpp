// The C library's integer readers as they behave where long is 32 bits.
// The numbers of the input, the dialogue and the environment are 32-bit
// integers in both builds; the x86-64 library reads them into a 64-bit long
// and would truncate what the i386 one saturates (99999999999 would come out
// as 1215752191, 4294967296 as 0). These read every text alike in both.
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "service/strings.h"

namespace {

// A value of the 64-bit reader, saturated as the 32-bit reader saturates.
int32_t saturate_long32(long long value) {
    if (value > INT32_MAX) {
        errno = ERANGE;
        return INT32_MAX;
    }
    if (value < INT32_MIN) {
        errno = ERANGE;
        return INT32_MIN;
    }
    return static_cast<int32_t>(value);
}

}  // namespace

extern "C" {

int32_t tarn_serv_strtol_as_long32(const char* s, char** end, int base) {
    return saturate_long32(std::strtoll(s, end, base));
}

uint32_t tarn_serv_strtoul_as_ulong32(const char* s, char** end, int base) {
    // The 32-bit reader saturates on the magnitude and then negates modulo
    // 2^32, so "-1" is 4294967295 while "-4294967296" is out of range.
    const char* p = s;
    while (std::isspace(static_cast<unsigned char>(*p))) ++p;
    const bool minus = *p == '-';
    const int errno_before = errno;
    errno = 0;
    const unsigned long long value = std::strtoull(s, end, base);
    const int errno_after = errno;
    errno = errno_after != 0 ? errno_after : errno_before;
    const unsigned long long magnitude = minus ? 0ull - value : value;
    if (errno_after == ERANGE || magnitude > UINT32_MAX) {
        errno = ERANGE;
        return UINT32_MAX;
    }
    return static_cast<uint32_t>(minus ? 0ull - magnitude : magnitude);
}

int tarn_serv_fscanf_i_as_long32(FILE* stream, int32_t* value) {
    // "%lli" walks the stream exactly as "%i" does; only the conversion at
    // the end is wider.
    long long wide = 0;
    const int result = std::fscanf(stream, "%lli", &wide);
    if (result == 1) *value = saturate_long32(wide);
    return result;
}

}  // extern "C"
