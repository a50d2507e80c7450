// Bounded memory routines: memcpy_s and the primitives under it.
#include <cstdint>
#include <cstring>

#include "service/strings.h"

namespace {

// Word fill runs of mem_prim_set.
constexpr std::size_t kWordsPerRun = 16;

void report(const char* message, int code) {
    tarn_serv_invoke_safe_mem_constraint_handler(message, nullptr, code);
}

}  // namespace

extern "C" {

void tarn_serv_mem_prim_set(void* dest, std::size_t len, std::uint8_t value) {
    auto* bytes = static_cast<std::uint8_t*>(dest);
    // Bytes up to the first word boundary.
    while (len > 0 && reinterpret_cast<std::uintptr_t>(bytes) % sizeof(std::uint32_t) != 0) {
        *bytes++ = value;
        --len;
    }
    const std::uint32_t word = 0x01010101u * value;
    // Whole runs of 16 words, then single words, then the tail bytes.
    for (; len >= kWordsPerRun * sizeof(word); len -= kWordsPerRun * sizeof(word)) {
        for (std::size_t i = 0; i < kWordsPerRun; ++i) std::memcpy(bytes + i * sizeof(word), &word, sizeof(word));
        bytes += kWordsPerRun * sizeof(word);
    }
    for (; len >= sizeof(word); len -= sizeof(word)) {
        std::memcpy(bytes, &word, sizeof(word));
        bytes += sizeof(word);
    }
    while (len-- > 0) *bytes++ = value;
}

void tarn_serv_mem_prim_move(void* dest, const void* src, std::size_t len) { std::memmove(dest, src, len); }

int tarn_serv_memcpy_s(void* dest, std::size_t dmax, const void* src, std::size_t smax) {
    if (dest == nullptr) {
        report("memcpy_s: dest is NULL", kTarnEsnull);
        return kTarnEsnull;
    }
    if (dmax == 0) {
        report("memcpy_s: dmax is 0", kTarnEszero);
        return kTarnEszero;
    }
    if (dmax > kTarnMemMaxLen) {
        report("memcpy_s: dmax exceeds max", kTarnEslemax);
        return kTarnEslemax;
    }
    // From here on a refused copy leaves dest zeroed.
    auto refuse = [&](const char* message, int code) {
        tarn_serv_mem_prim_set(dest, dmax, 0);
        report(message, code);
        return code;
    };
    if (smax == 0) return refuse("memcpy_s: smax is 0", kTarnEszero);
    if (smax > dmax) return refuse("memcpy_s: smax exceeds dmax", kTarnEslemax);
    if (src == nullptr) return refuse("memcpy_s: src is NULL", kTarnEsnull);
    // Lopsided on purpose: each side is measured with its own extent, and
    // dest equal to src passes.
    const auto* d = static_cast<const std::uint8_t*>(dest);
    const auto* s = static_cast<const std::uint8_t*>(src);
    if ((d > s && d < s + smax) || (s > d && s < d + dmax)) return refuse("memcpy_s: overlap undefined", kTarnEsovrlp);
    tarn_serv_mem_prim_move(dest, src, smax);
    return 0;
}

}  // extern "C"
