// Fortran-style text helpers: character comparison and blank-padded copies.
#include <cstring>

#include "service/strings.h"

namespace {

constexpr char to_upper_ascii(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - ('a' - 'A')) : c; }

// Copies up to `count` bytes of src to dest, stopping at destlen; returns
// the bytes written.
int copy_part(char* dest, int destlen, const char* src, int count) {
    const int n = count < destlen ? count : destlen;
    if (n <= 0) return 0;
    std::memcpy(dest, src, static_cast<std::size_t>(n));
    return n;
}

}  // namespace

extern "C" {

int tarn_serv_lsame(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return 0;
    return to_upper_ascii(*a) == to_upper_ascii(*b) ? 1 : 0;
}

void tarn_serv_strcpy(char* dest, const char* src, int destlen, int srclen) {
    if (dest == nullptr || destlen <= 0) return;
    const int used = src != nullptr ? copy_part(dest, destlen, src, srclen) : 0;
    if (used < destlen) std::memset(dest + used, ' ', static_cast<std::size_t>(destlen - used));
}

void tarn_serv_strcat2(char* dest, const char* src1, const char* src2, int destlen, int src1len, int src2len) {
    if (dest == nullptr || destlen <= 0) return;
    int used = src1 != nullptr ? copy_part(dest, destlen, src1, src1len) : 0;
    if (src2 != nullptr) used += copy_part(dest + used, destlen - used, src2, src2len);
    if (used < destlen) std::memset(dest + used, ' ', static_cast<std::size_t>(destlen - used));
}

}  // extern "C"
