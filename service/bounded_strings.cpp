// Bounded string routines: strnlen_s, strncpy_s, strncat_s, strtok_s.
// Failures report through the string constraint handler and by return
// value; the texts and codes are part of the interface.
#include <cstddef>

#include "service/strings.h"

namespace {

void report(const char* message, int code) {
    tarn_serv_invoke_safe_str_constraint_handler(message, nullptr, code);
}

// A failure after dest was found usable empties it before reporting.
int fail_and_empty(char* dest, const char* message, int code) {
    dest[0] = '\0';
    report(message, code);
    return code;
}

// Longest delimiter list strtok_s scans; a longer one counts as
// unterminated.
constexpr std::size_t kStrtokDelimMax = 16;

// Copies src to dest (which lies at or behind dest_start) until a
// terminator, slen bytes or dmax bytes, stopping when the pointer into the
// object that starts first runs into the start of the other one.
// Returns 0, or the code of the failure (dest_start then emptied).
int copy_bounded(char* dest_start, char* dest, std::size_t dmax, const char* src, std::size_t slen,
                 const char* overlap_text, const char* nospace_text) {
    const bool dest_first = dest_start < src;
    const char* bumper = dest_first ? src : dest_start;
    while (dmax > 0) {
        if ((dest_first ? static_cast<const char*>(dest) : src) == bumper)
            return fail_and_empty(dest_start, overlap_text, kTarnEsovrlp);
        if (slen == 0) {
            *dest = '\0';
            return 0;
        }
        *dest = *src;
        if (*dest == '\0') return 0;
        --dmax;
        --slen;
        ++dest;
        ++src;
    }
    return fail_and_empty(dest_start, nospace_text, kTarnEsnospc);
}

bool is_delimiter(char c, const char* delim, bool& unterminated) {
    std::size_t left = kStrtokDelimMax;
    for (const char* p = delim; *p != '\0'; ++p) {
        if (left == 0) {
            unterminated = true;
            return false;
        }
        --left;
        if (c == *p) return true;
    }
    return false;
}

// What strtok_s finds at one character of its walk, with `left` bytes of
// the text allowed from there on: a delimiter, another character, or a
// fault (the text or the delimiter list unterminated), reported, *ptr
// cleared.
enum class TokenChar { kDelimiter, kOther, kFault };

TokenChar classify_token_char(char c, std::size_t left, const char* delim, char** ptr) {
    const char* fault = "strtok_s: dest is unterminated";
    if (left != 0) {
        bool unterminated = false;
        const bool at_delimiter = is_delimiter(c, delim, unterminated);
        if (!unterminated) return at_delimiter ? TokenChar::kDelimiter : TokenChar::kOther;
        fault = "strtok_s: src is unterminated";
    }
    *ptr = nullptr;
    report(fault, kTarnEsunterm);
    return TokenChar::kFault;
}

}  // namespace

extern "C" {

std::size_t tarn_serv_strnlen_s(const char* s, std::size_t dmax) {
    if (s == nullptr) return 0;
    if (dmax == 0) {
        report("strnlen_s: dmax is 0", kTarnEszero);
        return 0;
    }
    if (dmax > kTarnStrMaxLen) {
        report("strnlen_s: dmax exceeds max", kTarnEslemax);
        return 0;
    }
    std::size_t count = 0;
    while (count < dmax && s[count] != '\0') ++count;
    return count;
}

int tarn_serv_strncpy_s(char* dest, std::size_t dmax, const char* src, std::size_t slen) {
    if (dest == nullptr) {
        report("strncpy_s: dest is null", kTarnEsnull);
        return kTarnEsnull;
    }
    if (dmax == 0) {
        report("strncpy_s: dmax is 0", kTarnEszero);
        return kTarnEszero;
    }
    if (dmax > kTarnStrMaxLen) {
        report("strncpy_s: dmax exceeds max", kTarnEslemax);
        return kTarnEslemax;
    }
    if (src == nullptr) return fail_and_empty(dest, "strncpy_s: src is null", kTarnEsnull);
    // Unlike Annex K, a zero count is refused.
    if (slen == 0) return fail_and_empty(dest, "strncpy_s: slen is zero", kTarnEszero);
    if (slen > kTarnStrMaxLen) return fail_and_empty(dest, "strncpy_s: slen exceeds max", kTarnEslemax);
    return copy_bounded(dest, dest, dmax, src, slen, "strncpy_s: overlapping objects",
                        "strncpy_s: not enough space for src");
}

int tarn_serv_strncat_s(char* dest, std::size_t dmax, const char* src, std::size_t slen) {
    if (dest == nullptr) {
        report("strncat_s: dest is null", kTarnEsnull);
        return kTarnEsnull;
    }
    if (src == nullptr) {
        report("strncat_s: src is null", kTarnEsnull);
        return kTarnEsnull;
    }
    if (slen > kTarnStrMaxLen) {
        report("strncat_s: slen exceeds max", kTarnEslemax);
        return kTarnEslemax;
    }
    if (dmax == 0) {
        report("strncat_s: dmax is 0", kTarnEszero);
        return kTarnEszero;
    }
    if (dmax > kTarnStrMaxLen) {
        report("strncat_s: dmax exceeds max", kTarnEslemax);
        return kTarnEslemax;
    }
    // Find the end of dest; with dest ahead of src, walking dest may run
    // into src.
    char* end = dest;
    std::size_t left = dmax;
    while (*end != '\0') {
        if (dest < src && end == src) return fail_and_empty(dest, "strncat_s: overlapping objects", kTarnEsovrlp);
        ++end;
        --left;
        if (left == 0) return fail_and_empty(dest, "strncat_s: dest unterminated", kTarnEsunterm);
    }
    return copy_bounded(dest, end, left, src, slen, "strncat_s: overlapping objects",
                        "strncat_s: not enough space for src");
}

char* tarn_serv_strtok_s(char* s, std::size_t* dmax, const char* delim, char** ptr) {
    if (dmax == nullptr) {
        report("strtok_s: dmax is NULL", kTarnEsnull);
        return nullptr;
    }
    if (*dmax == 0) {
        report("strtok_s: dmax is 0", kTarnEszero);
        return nullptr;
    }
    if (*dmax > kTarnStrMaxLen) {
        report("strtok_s: dmax exceeds max", kTarnEslemax);
        return nullptr;
    }
    if (delim == nullptr) {
        report("strtok_s: src is null", kTarnEsnull);
        return nullptr;
    }
    if (ptr == nullptr) {
        report("strtok_s: ptr is null", kTarnEsnull);
        return nullptr;
    }
    char* text = s != nullptr ? s : *ptr;
    if (text == nullptr) return nullptr;

    std::size_t left = *dmax;
    // Skip leading delimiters to the start of the token.
    char* token = nullptr;
    while (*text != '\0') {
        const TokenChar at = classify_token_char(*text, left, delim, ptr);
        if (at == TokenChar::kFault) return nullptr;
        if (at == TokenChar::kOther) {
            token = text;
            break;
        }
        ++text;
        --left;
    }
    if (token == nullptr) {
        *dmax = left;
        *ptr = text;
        return nullptr;
    }
    // Walk to the end of the token; a delimiter there is overwritten.
    while (*text != '\0') {
        const TokenChar at = classify_token_char(*text, left, delim, ptr);
        if (at == TokenChar::kFault) return nullptr;
        if (at == TokenChar::kDelimiter) {
            *text = '\0';
            *ptr = text + 1;
            *dmax = left - 1;
            return token;
        }
        ++text;
        --left;
    }
    // The token ends the text: the next call finds nothing.
    *dmax = left;
    *ptr = text;
    return token;
}

}  // extern "C"
