// The bounded string, memory and stdio family, and the Fortran-style text
// helpers: the order of the checks, the handler texts and codes, what is
// left in the destination, and the return values; and the integer readers
// that read as the C library does where long is 32 bits.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "output_capture.h"
#include "service/strings.h"
#include "support/test_support.h"

namespace {

struct Report {
    std::string message;
    void* ptr;
    int code;
    bool operator==(const Report&) const = default;
};
std::vector<Report> str_reports, mem_reports;

void record_str(const char* message, void* ptr, int code) { str_reports.push_back({message, ptr, code}); }
void record_mem(const char* message, void* ptr, int code) { mem_reports.push_back({message, ptr, code}); }

// Installs recording handlers for both families and restores the old ones.
class Bounded : public ::testing::Test {
protected:
    void SetUp() override {
        str_reports.clear();
        mem_reports.clear();
        old_str_ = tarn_serv_set_str_constraint_handler_s(record_str);
        old_mem_ = tarn_serv_set_mem_constraint_handler_s(record_mem);
    }
    void TearDown() override {
        tarn_serv_set_str_constraint_handler_s(old_str_);
        tarn_serv_set_mem_constraint_handler_s(old_mem_);
    }
    // The single report expected of the last call, which is then forgotten.
    static void expect_str_report(const char* message, int code) {
        ASSERT_EQ(str_reports.size(), 1u) << message;
        EXPECT_EQ(str_reports[0], (Report{message, nullptr, code}));
        str_reports.clear();
    }
    static void expect_mem_report(const char* message, int code) {
        ASSERT_EQ(mem_reports.size(), 1u) << message;
        EXPECT_EQ(mem_reports[0], (Report{message, nullptr, code}));
        mem_reports.clear();
    }
    tarn_constraint_handler_t old_str_ = nullptr;
    tarn_constraint_handler_t old_mem_ = nullptr;
};

// ---- Handlers ----------------------------------------------------------------

TEST_F(Bounded, HandlersAreSeparateAndSettersReturnThePreviousOne) {
    EXPECT_EQ(tarn_serv_set_str_constraint_handler_s(nullptr), record_str);
    // Null stored the ignoring handler, which is what the next setter returns.
    EXPECT_EQ(tarn_serv_set_str_constraint_handler_s(record_str), tarn_serv_ignore_handler_s);
    tarn_serv_invoke_safe_str_constraint_handler("s", nullptr, 1);
    tarn_serv_invoke_safe_mem_constraint_handler("m", nullptr, 2);
    EXPECT_EQ(str_reports, (std::vector<Report>{{"s", nullptr, 1}}));
    EXPECT_EQ(mem_reports, (std::vector<Report>{{"m", nullptr, 2}}));
}

TEST_F(Bounded, IgnoringHandlerSilencesFailures) {
    tarn_serv_set_str_constraint_handler_s(nullptr);
    EXPECT_EQ(tarn_serv_strnlen_s("abc", 0), 0u);
    EXPECT_TRUE(str_reports.empty());
}

// ---- strnlen_s -------------------------------------------------------------------

TEST_F(Bounded, StrnlenCountsUpToTheLimit) {
    EXPECT_EQ(tarn_serv_strnlen_s("hello", 10), 5u);
    EXPECT_EQ(tarn_serv_strnlen_s("hello", 3), 3u);
    EXPECT_EQ(tarn_serv_strnlen_s("", 10), 0u);
    const char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(tarn_serv_strnlen_s(unterminated, 4), 4u);
    const std::string long_text(5000, 'x');
    EXPECT_EQ(tarn_serv_strnlen_s(long_text.c_str(), 4096), 4096u);
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, StrnlenNullIsZeroWithoutReport) {
    EXPECT_EQ(tarn_serv_strnlen_s(nullptr, 10), 0u);
    EXPECT_EQ(tarn_serv_strnlen_s(nullptr, 0), 0u);
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, StrnlenBadLimitsReportAndGiveZero) {
    EXPECT_EQ(tarn_serv_strnlen_s("abc", 0), 0u);
    expect_str_report("strnlen_s: dmax is 0", 401);
    EXPECT_EQ(tarn_serv_strnlen_s("abc", 4097), 0u);
    expect_str_report("strnlen_s: dmax exceeds max", 403);
}

// ---- strncpy_s -------------------------------------------------------------------

TEST_F(Bounded, StrncpyCopiesAndLeavesTheRestBehindTheTerminator) {
    char dest[10];
    std::memset(dest, '#', sizeof(dest));
    EXPECT_EQ(tarn_serv_strncpy_s(dest, sizeof(dest), "abc", 10), 0);
    EXPECT_STREQ(dest, "abc");
    EXPECT_EQ(dest[4], '#');
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, StrncpyStopsAtSlenAndTerminates) {
    char dest[10];
    std::memset(dest, '#', sizeof(dest));
    EXPECT_EQ(tarn_serv_strncpy_s(dest, sizeof(dest), "abcdef", 3), 0);
    EXPECT_STREQ(dest, "abc");
    EXPECT_EQ(dest[4], '#');
}

TEST_F(Bounded, StrncpyNeedsRoomForTheTerminator) {
    char dest[4];
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 4, "abc", 10), 0);
    EXPECT_STREQ(dest, "abc");
    std::memset(dest, '#', sizeof(dest));
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 4, "abcd", 10), 406);
    expect_str_report("strncpy_s: not enough space for src", 406);
    EXPECT_EQ(dest[0], '\0');
    // slen equal to dmax leaves no room for the terminator either.
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 4, "abcdef", 4), 406);
    expect_str_report("strncpy_s: not enough space for src", 406);
}

TEST_F(Bounded, StrncpyChecksInOrderAndEmptiesDestOnlyFromTheSourceChecksOn) {
    char dest[8];
    EXPECT_EQ(tarn_serv_strncpy_s(nullptr, 8, "a", 1), 400);
    expect_str_report("strncpy_s: dest is null", 400);

    std::strcpy(dest, "keep");
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 0, nullptr, 0), 401);
    expect_str_report("strncpy_s: dmax is 0", 401);
    EXPECT_STREQ(dest, "keep");
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 4097, nullptr, 0), 403);
    expect_str_report("strncpy_s: dmax exceeds max", 403);
    EXPECT_STREQ(dest, "keep");

    EXPECT_EQ(tarn_serv_strncpy_s(dest, 8, nullptr, 0), 400);
    expect_str_report("strncpy_s: src is null", 400);
    EXPECT_EQ(dest[0], '\0');
    std::strcpy(dest, "keep");
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 8, "abc", 0), 401);
    expect_str_report("strncpy_s: slen is zero", 401);
    EXPECT_EQ(dest[0], '\0');
    std::strcpy(dest, "keep");
    EXPECT_EQ(tarn_serv_strncpy_s(dest, 8, "abc", 4097), 403);
    expect_str_report("strncpy_s: slen exceeds max", 403);
    EXPECT_EQ(dest[0], '\0');
}

TEST_F(Bounded, StrncpyRefusesOverlapInEitherDirection) {
    char text[16] = "abcdefgh";
    // dest ahead of src: the copy walks into the source.
    EXPECT_EQ(tarn_serv_strncpy_s(text, 8, text + 3, 8), 404);
    expect_str_report("strncpy_s: overlapping objects", 404);
    EXPECT_EQ(text[0], '\0');
    // src ahead of dest: the source walks into the destination.
    std::strcpy(text, "abcdefgh");
    EXPECT_EQ(tarn_serv_strncpy_s(text + 3, 8, text, 8), 404);
    expect_str_report("strncpy_s: overlapping objects", 404);
    EXPECT_EQ(text[3], '\0');
    // Far enough apart is fine.
    std::strcpy(text, "ab");
    EXPECT_EQ(tarn_serv_strncpy_s(text + 8, 8, text, 8), 0);
    EXPECT_STREQ(text + 8, "ab");
}

// ---- strncat_s -------------------------------------------------------------------

TEST_F(Bounded, StrncatAppendsUpToSlen) {
    char dest[10] = "ab";
    EXPECT_EQ(tarn_serv_strncat_s(dest, sizeof(dest), "cdef", 2), 0);
    EXPECT_STREQ(dest, "abcd");
    EXPECT_EQ(tarn_serv_strncat_s(dest, sizeof(dest), "xy", 10), 0);
    EXPECT_STREQ(dest, "abcdxy");
    // A zero count appends nothing and is no error here.
    EXPECT_EQ(tarn_serv_strncat_s(dest, sizeof(dest), "zz", 0), 0);
    EXPECT_STREQ(dest, "abcdxy");
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, StrncatChecksAndTheirTexts) {
    char dest[8] = "ab";
    EXPECT_EQ(tarn_serv_strncat_s(nullptr, 8, "c", 1), 400);
    expect_str_report("strncat_s: dest is null", 400);
    EXPECT_EQ(tarn_serv_strncat_s(dest, 8, nullptr, 1), 400);
    expect_str_report("strncat_s: src is null", 400);
    EXPECT_EQ(tarn_serv_strncat_s(dest, 8, "c", 4097), 403);
    expect_str_report("strncat_s: slen exceeds max", 403);
    EXPECT_EQ(tarn_serv_strncat_s(dest, 0, "c", 1), 401);
    expect_str_report("strncat_s: dmax is 0", 401);
    EXPECT_EQ(tarn_serv_strncat_s(dest, 4097, "c", 1), 403);
    expect_str_report("strncat_s: dmax exceeds max", 403);
    EXPECT_STREQ(dest, "ab");

    char full[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(tarn_serv_strncat_s(full, 4, "x", 1), 407);
    expect_str_report("strncat_s: dest unterminated", 407);
    EXPECT_EQ(full[0], '\0');

    std::strcpy(dest, "abcde");
    EXPECT_EQ(tarn_serv_strncat_s(dest, 8, "xyz", 3), 406);
    expect_str_report("strncat_s: not enough space for src", 406);
    EXPECT_EQ(dest[0], '\0');
}

TEST_F(Bounded, StrncatRefusesOverlap) {
    char text[16] = "abc";
    EXPECT_EQ(tarn_serv_strncat_s(text, 16, text + 1, 4), 404);
    expect_str_report("strncat_s: overlapping objects", 404);
    EXPECT_EQ(text[0], '\0');
    std::strcpy(text, "abc");
    std::strcpy(text + 8, "xy");
    EXPECT_EQ(tarn_serv_strncat_s(text + 8, 8, text, 8), 0);
    EXPECT_STREQ(text + 8, "xyabc");
}

// ---- memcpy_s and the primitives ---------------------------------------------------

TEST_F(Bounded, MemcpyCopiesSmaxBytes) {
    unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned char dest[8] = {};
    std::memset(dest, 0xEE, sizeof(dest));
    EXPECT_EQ(tarn_serv_memcpy_s(dest, 8, src, 5), 0);
    EXPECT_EQ(std::memcmp(dest, src, 5), 0);
    EXPECT_EQ(dest[5], 0xEE);
    EXPECT_TRUE(mem_reports.empty());
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, MemcpyChecksInOrderAndZeroesDestFromTheSourceChecksOn) {
    unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned char dest[8];
    EXPECT_EQ(tarn_serv_memcpy_s(nullptr, 8, src, 8), 400);
    expect_mem_report("memcpy_s: dest is NULL", 400);
    std::memset(dest, 0xEE, sizeof(dest));
    EXPECT_EQ(tarn_serv_memcpy_s(dest, 0, src, 8), 401);
    expect_mem_report("memcpy_s: dmax is 0", 401);
    EXPECT_EQ(tarn_serv_memcpy_s(dest, 0x10000001, src, 8), 403);
    expect_mem_report("memcpy_s: dmax exceeds max", 403);
    EXPECT_EQ(dest[0], 0xEE);

    auto expect_zeroed = [&] {
        for (unsigned char b : dest) EXPECT_EQ(b, 0);
        std::memset(dest, 0xEE, sizeof(dest));
    };
    EXPECT_EQ(tarn_serv_memcpy_s(dest, 8, src, 0), 401);
    expect_mem_report("memcpy_s: smax is 0", 401);
    expect_zeroed();
    EXPECT_EQ(tarn_serv_memcpy_s(dest, 8, src, 9), 403);
    expect_mem_report("memcpy_s: smax exceeds dmax", 403);
    expect_zeroed();
    EXPECT_EQ(tarn_serv_memcpy_s(dest, 8, nullptr, 8), 400);
    expect_mem_report("memcpy_s: src is NULL", 400);
    expect_zeroed();
}

TEST_F(Bounded, MemcpyOverlapTestIsLopsided) {
    unsigned char buffer[32];
    for (int i = 0; i < 32; ++i) buffer[i] = static_cast<unsigned char>(i);
    // dest below src: refused when src lies within dest + dmax.
    EXPECT_EQ(tarn_serv_memcpy_s(buffer, 8, buffer + 7, 1), 404);
    expect_mem_report("memcpy_s: overlap undefined", 404);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(buffer[i], 0);
    // ... and passes when src is beyond dest + dmax even if smax would reach.
    for (int i = 0; i < 32; ++i) buffer[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(tarn_serv_memcpy_s(buffer, 8, buffer + 8, 8), 0);
    EXPECT_EQ(buffer[0], 8);
    // dest above src: refused when dest lies within src + smax.
    for (int i = 0; i < 32; ++i) buffer[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(tarn_serv_memcpy_s(buffer + 4, 8, buffer, 5), 404);
    expect_mem_report("memcpy_s: overlap undefined", 404);
    for (int i = 0; i < 32; ++i) buffer[i] = static_cast<unsigned char>(i);
    EXPECT_EQ(tarn_serv_memcpy_s(buffer + 4, 8, buffer, 4), 0);
    EXPECT_EQ(buffer[4], 0);
    EXPECT_EQ(buffer[7], 3);
    // The same address passes.
    EXPECT_EQ(tarn_serv_memcpy_s(buffer, 8, buffer, 8), 0);
    EXPECT_TRUE(mem_reports.empty());
}

TEST(MemPrim, SetFillsExactlyTheRangeAtEveryAlignment) {
    std::vector<std::uint8_t> buffer(300), reference(300);
    for (std::size_t offset = 0; offset < 8; ++offset) {
        for (std::size_t length : {0u, 1u, 3u, 4u, 5u, 63u, 64u, 65u, 127u, 200u}) {
            std::fill(buffer.begin(), buffer.end(), 0x11);
            std::fill(reference.begin(), reference.end(), 0x11);
            tarn_serv_mem_prim_set(buffer.data() + offset, length, 0xA5);
            std::memset(reference.data() + offset, 0xA5, length);
            EXPECT_EQ(buffer, reference) << "offset " << offset << " length " << length;
        }
    }
}

TEST(MemPrim, MoveHandlesOverlapBothWays) {
    char text[] = "0123456789";
    tarn_serv_mem_prim_move(text + 2, text, 5);
    EXPECT_STREQ(text, "0101234789");
    std::strcpy(text, "0123456789");
    tarn_serv_mem_prim_move(text, text + 2, 5);
    EXPECT_STREQ(text, "2345656789");
}

// ---- strtok_s --------------------------------------------------------------------

TEST_F(Bounded, StrtokWalksTheTokensOfAnInputLine) {
    char line[] = "1000 2000  3000\n";
    std::size_t left = std::strlen(line);
    char* context = nullptr;
    std::vector<std::string> tokens;
    tokens.push_back(tarn_serv_strtok_s(line, &left, " ", &context));
    for (int i = 0; i < 2; ++i) tokens.push_back(tarn_serv_strtok_s(nullptr, &left, " ", &context));
    EXPECT_EQ(tokens, (std::vector<std::string>{"1000", "2000", "3000\n"}));
    EXPECT_EQ(left, 0u);
    EXPECT_TRUE(str_reports.empty());
    // The length is used up: asking for a missing token reports and finds none.
    EXPECT_EQ(tarn_serv_strtok_s(nullptr, &left, " ", &context), nullptr);
    expect_str_report("strtok_s: dmax is 0", 401);
}

TEST_F(Bounded, StrtokAfterTheLastTokenFindsNothingWhileLengthRemains) {
    char line[] = "7 ";
    std::size_t left = sizeof(line);  // the terminator counted too
    char* context = nullptr;
    EXPECT_STREQ(tarn_serv_strtok_s(line, &left, " ", &context), "7");
    EXPECT_EQ(tarn_serv_strtok_s(nullptr, &left, " ", &context), nullptr);
    EXPECT_EQ(tarn_serv_strtok_s(nullptr, &left, " ", &context), nullptr);
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, StrtokCountsDownTheRemainingLength) {
    char line[] = "ab cd";
    std::size_t left = 5;
    char* context = nullptr;
    EXPECT_STREQ(tarn_serv_strtok_s(line, &left, " ", &context), "ab");
    EXPECT_EQ(left, 2u);
    EXPECT_EQ(context, line + 3);
    EXPECT_STREQ(tarn_serv_strtok_s(nullptr, &left, " ", &context), "cd");
    EXPECT_EQ(left, 0u);
}

TEST_F(Bounded, StrtokTabIsNoDelimiterForABlank) {
    char line[] = "1\t2 3";
    std::size_t left = std::strlen(line);
    char* context = nullptr;
    EXPECT_STREQ(tarn_serv_strtok_s(line, &left, " ", &context), "1\t2");
    EXPECT_STREQ(tarn_serv_strtok_s(nullptr, &left, " ", &context), "3");
}

TEST_F(Bounded, StrtokOnlyDelimitersGivesNoToken) {
    char line[] = "   ";
    std::size_t left = 3;
    char* context = nullptr;
    EXPECT_EQ(tarn_serv_strtok_s(line, &left, " ", &context), nullptr);
    EXPECT_TRUE(str_reports.empty());
}

TEST_F(Bounded, StrtokChecksAndTheirTexts) {
    char line[] = "a b";
    std::size_t left = 3;
    char* context = nullptr;
    EXPECT_EQ(tarn_serv_strtok_s(line, nullptr, " ", &context), nullptr);
    expect_str_report("strtok_s: dmax is NULL", 400);
    std::size_t zero = 0;
    EXPECT_EQ(tarn_serv_strtok_s(line, &zero, " ", &context), nullptr);
    expect_str_report("strtok_s: dmax is 0", 401);
    std::size_t huge = 4097;
    EXPECT_EQ(tarn_serv_strtok_s(line, &huge, " ", &context), nullptr);
    expect_str_report("strtok_s: dmax exceeds max", 403);
    EXPECT_EQ(tarn_serv_strtok_s(line, &left, nullptr, &context), nullptr);
    expect_str_report("strtok_s: src is null", 400);
    EXPECT_EQ(tarn_serv_strtok_s(line, &left, " ", nullptr), nullptr);
    expect_str_report("strtok_s: ptr is null", 400);
}

TEST_F(Bounded, StrtokTextLongerThanItsLimitIsUnterminated) {
    char line[] = "abcdef";
    std::size_t left = 3;
    char* context = line;
    EXPECT_EQ(tarn_serv_strtok_s(line, &left, " ", &context), nullptr);
    expect_str_report("strtok_s: dest is unterminated", 407);
    EXPECT_EQ(context, nullptr);
}

TEST_F(Bounded, StrtokDelimiterListIsScannedForSixteenCharacters) {
    char line[] = "x y";
    std::size_t left = 3;
    char* context = line;
    // 17 delimiters, none of them the text's first character.
    EXPECT_EQ(tarn_serv_strtok_s(line, &left, "abcdefghijklmnop ", &context), nullptr);
    expect_str_report("strtok_s: src is unterminated", 407);
    EXPECT_EQ(context, nullptr);
    // Sixteen are fine.
    char again[] = "x y";
    left = 3;
    EXPECT_STREQ(tarn_serv_strtok_s(again, &left, "abcdefghijklmno ", &context), "x");
}

// ---- Formatted output ------------------------------------------------------------

TEST(Sprintf, FittingTextReturnsItsLength) {
    char buffer[8];
    EXPECT_EQ(tarn_serv_sprintf_s(buffer, 8, "%d-%s", 12, "ab"), 5);
    EXPECT_STREQ(buffer, "12-ab");
    EXPECT_EQ(tarn_serv_sprintf_s(buffer, 8, "%s", "1234567"), 7);
    EXPECT_STREQ(buffer, "1234567");
}

TEST(Sprintf, TextThatDoesNotFitEmptiesTheBuffer) {
    char buffer[8];
    std::memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(tarn_serv_sprintf_s(buffer, 8, "%s", "12345678"), -1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[7], '\0');
}

TEST(Sprintf, NullArgumentsAndZeroSizeFail) {
    char buffer[4] = {'#', '#', '#', '#'};
    const char* no_format = nullptr;
    EXPECT_EQ(tarn_serv_sprintf_s(buffer, 4, no_format), -1);
    EXPECT_EQ(tarn_serv_sprintf_s(nullptr, 4, "x"), -1);
    EXPECT_EQ(tarn_serv_sprintf_s(buffer, 0, "x"), -1);
    EXPECT_EQ(buffer[0], '#');
}

TEST(Sprintf, LastByteOfTheLimitIsAlwaysCleared) {
    char buffer[8];
    std::memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(tarn_serv_sprintf_s(buffer, 8, "%d", 42), 2);
    EXPECT_STREQ(buffer, "42");
    EXPECT_EQ(buffer[3], '#');
    EXPECT_EQ(buffer[7], '\0');
}

TEST(Snprintf, CountBelowSizeCutsTheTextAndKeepsIt) {
    char buffer[16];
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 16, 4, "%s", "abcdefgh"), -1);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 16, 4, "%s", "abcd"), 4);
    EXPECT_STREQ(buffer, "abcd");
}

TEST(Snprintf, TraceLineOfTheSolverWrappers) {
    char buffer[450];
    const int written = tarn_serv_snprintf_s(buffer, 450, 449, "DGETRF(%d,%d,%p,%d,%p,%d)", 1000, 1000, nullptr,
                                             1000, nullptr, 0);
    EXPECT_EQ(written, static_cast<int>(std::strlen(buffer)));
    EXPECT_EQ(std::string(buffer).rfind("DGETRF(1000,1000,", 0), 0u);
    const std::string long_text(600, 'z');
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 450, 449, "%s", long_text.c_str()), -1);
    EXPECT_EQ(std::strlen(buffer), 449u);
}

TEST(Snprintf, TextReachingTheSizeEmptiesTheBufferUnlessTruncating) {
    char buffer[8];
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 8, 8, "%s", "12345678"), -1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 8, 100, "%s", "12345678"), -1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 8, 0xFFFFFFFFu, "%s", "12345678"), -1);
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 8, 0xFFFFFFFFu, "%s", "123"), 3);
    EXPECT_STREQ(buffer, "123");
}

TEST(Snprintf, NullArgumentsAndZeroSizeFail) {
    char buffer[4] = {'#', '#', '#', '#'};
    const char* no_format = nullptr;
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 4, 3, no_format), -1);
    EXPECT_EQ(tarn_serv_snprintf_s(nullptr, 4, 3, "x"), -1);
    EXPECT_EQ(tarn_serv_snprintf_s(buffer, 0, 3, "x"), -1);
    EXPECT_EQ(buffer[0], '#');
}

TEST(Fprintf, WritesThroughABoundedStackBuffer) {
    const std::string path = testsupport::write_temp_file("", ".txt");
    FILE* file = tarn_serv_fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(tarn_serv_fprintf_s(file, "%s=%d;", "n", 5), 4);
    const std::string too_long(1024, 'q');
    EXPECT_EQ(tarn_serv_fprintf_s(file, "%s", too_long.c_str()), -1);
    const std::string fits(1023, 'f');
    EXPECT_EQ(tarn_serv_fprintf_s(file, "%s", fits.c_str()), 1023);
    EXPECT_EQ(tarn_serv_fclose(file), 0);
    EXPECT_EQ(capture::read_file(path), "n=5;" + fits);
    EXPECT_EQ(tarn_serv_fprintf_s(nullptr, "x"), -1);
    std::remove(path.c_str());
}

TEST(Fprintf, PlainFormsWriteTheirStreamsUnbounded) {
    const std::string big(3000, 'b');
    const auto result = capture::run_in_child([&] {
        tarn_serv_printf_s("p%d;", 1);
        tarn_serv_fprintf_stdout_s("o%d;", 2);
        tarn_serv_fprintf_stderr_s("e%d;", 3);
        tarn_serv_printf_s("%s", big.c_str());
    });
    EXPECT_EQ(result.out, "p1;o2;" + big);
    EXPECT_EQ(result.err, "e3;");
}

// Forwards its arguments to one of the va_list forms.
int through_va_list(int (*form)(const char*, va_list), const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = form(format, args);
    va_end(args);
    return result;
}

int to_stream(FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = tarn_serv_vfprintf_s(stream, format, args);
    va_end(args);
    return result;
}

TEST(Fprintf, VaListFormsWriteTheirStreams) {
    const auto result = capture::run_in_child([] {
        std::printf("%d;", through_va_list(tarn_serv_vfprintf_stdout_s, "out%d", 1));
        through_va_list(tarn_serv_vfprintf_stderr_s, "err%d", 2);
        std::printf("%d;", to_stream(stdout, "%s", "stream"));
    });
    EXPECT_EQ(result.out, "out14;stream6;");
    EXPECT_EQ(result.err, "err2");
}

// ---- Formatted input and files ----------------------------------------------------

TEST(Scanf, ReadsIntegersInEveryBaseTheDriverAccepts) {
    int value = 0;
    EXPECT_EQ(tarn_serv_sscanf_s("1000\n", "%i", &value), 1);
    EXPECT_EQ(value, 1000);
    EXPECT_EQ(tarn_serv_sscanf_s("0x10", "%i", &value), 1);
    EXPECT_EQ(value, 16);
    EXPECT_EQ(tarn_serv_sscanf_s("010", "%i", &value), 1);
    EXPECT_EQ(value, 8);
    EXPECT_EQ(tarn_serv_sscanf_s("abc", "%i", &value), 0);
}

TEST(Scanf, FileFormReadsFromTheStream) {
    const std::string path = testsupport::write_temp_file("42 7\n", ".txt");
    FILE* file = tarn_serv_fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    int a = 0, b = 0;
    EXPECT_EQ(tarn_serv_fscanf_s(file, "%i %i", &a, &b), 2);
    EXPECT_EQ(a, 42);
    EXPECT_EQ(b, 7);
    EXPECT_EQ(tarn_serv_fclose(file), 0);
    EXPECT_EQ(tarn_serv_fopen("/nonexistent/file", "r"), nullptr);
    std::remove(path.c_str());
}

// ---- Integers read as where long is 32 bits -----------------------------------------

// One text, its base, and what the 32-bit reader makes of it: the value, errno
// (0 or ERANGE) and how many characters it takes.
struct Long32Case {
    const char* text;
    int base;
    int32_t value;
    int error;
    int used;
};

void PrintTo(const Long32Case& c, std::ostream* os) { *os << '"' << c.text << "\" base " << c.base; }

constexpr int32_t kMax32 = INT32_MAX;
constexpr int32_t kMin32 = INT32_MIN;

const Long32Case kLong32Cases[] = {
    {"2147483647", 10, kMax32, 0, 10},
    {"2147483648", 10, kMax32, ERANGE, 10},
    {"-2147483648", 10, kMin32, 0, 11},
    {"-2147483649", 10, kMin32, ERANGE, 11},
    {"4294967295", 10, kMax32, ERANGE, 10},
    {"4294967296", 10, kMax32, ERANGE, 10},
    {"4294967297", 10, kMax32, ERANGE, 10},
    {"-4294967296", 10, kMin32, ERANGE, 11},
    {"99999999999", 10, kMax32, ERANGE, 11},
    {"-99999999999", 10, kMin32, ERANGE, 12},
    {"18446744073709551616", 10, kMax32, ERANGE, 20},
    {"-18446744073709551617", 10, kMin32, ERANGE, 21},
    {"0x7fffffff", 0, kMax32, 0, 10},
    {"0x80000000", 0, kMax32, ERANGE, 10},
    {"-0x80000000", 0, kMin32, 0, 11},
    {"-0x80000001", 0, kMin32, ERANGE, 11},
    {"0xFFFFFFFF", 0, kMax32, ERANGE, 10},
    {"-0xFFFFFFFF", 0, kMin32, ERANGE, 11},
    {"0x100000000", 0, kMax32, ERANGE, 11},
    {"017777777777", 0, kMax32, 0, 12},
    {"020000000000", 0, kMax32, ERANGE, 12},
    {"-020000000000", 0, kMin32, 0, 13},
    {"040000000000", 0, kMax32, ERANGE, 12},
    {"  +42 rest", 10, 42, 0, 5},
    {"\t-7", 10, -7, 0, 3},
    {"0x10", 10, 0, 0, 1},
    {"0x10", 16, 16, 0, 4},
    {"0x", 0, 0, 0, 1},
    {"08", 0, 0, 0, 1},
    {"-", 10, 0, 0, 0},
    {"abc", 10, 0, 0, 0},
};

class StrtolAsLong32 : public ::testing::TestWithParam<Long32Case> {};

TEST_P(StrtolAsLong32, SaturatesAtTheLimitsOf32BitsInEveryBuild) {
    const Long32Case& c = GetParam();
    char* end = nullptr;
    errno = 0;
    const int32_t value = tarn_serv_strtol_as_long32(c.text, &end, c.base);
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(errno, c.error);
    EXPECT_EQ(end - c.text, c.used);
}

// Where long is 32 bits the C library itself is the reference, for strtol and
// for "%i" alike; elsewhere the table's values stand for it.
TEST_P(StrtolAsLong32, AgreesWithTheCLibraryWhereLongIs32Bits) {
    if (sizeof(long) != 4) GTEST_SKIP() << "long is " << 8 * sizeof(long) << " bits here";
    const Long32Case& c = GetParam();
    char* end_ref = nullptr;
    errno = 0;
    const long ref = std::strtol(c.text, &end_ref, c.base);
    const int errno_ref = errno;
    char* end = nullptr;
    errno = 0;
    const int32_t value = tarn_serv_strtol_as_long32(c.text, &end, c.base);
    EXPECT_EQ(value, ref);
    EXPECT_EQ(errno, errno_ref);
    EXPECT_EQ(end, end_ref);
    if (c.base == 0) {
        int scanned = -5;
        const int count = std::sscanf(c.text, "%i", &scanned);
        EXPECT_EQ(count == 1, c.used > 0);
        if (count == 1) {
            EXPECT_EQ(scanned, value);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Table, StrtolAsLong32, ::testing::ValuesIn(kLong32Cases));

TEST(StrtolAsLong32, LeavesErrnoAloneOnAValueInRange) {
    errno = EINVAL;
    EXPECT_EQ(tarn_serv_strtol_as_long32("12", nullptr, 10), 12);
    EXPECT_EQ(errno, EINVAL);
    errno = EINVAL;
    EXPECT_EQ(tarn_serv_strtoul_as_ulong32("12", nullptr, 10), 12u);
    EXPECT_EQ(errno, EINVAL);
}

struct Ulong32Case {
    const char* text;
    int base;
    uint32_t value;
    int error;
};

TEST(StrtoulAsUlong32, SaturatesOnTheMagnitudeAndNegatesModulo32Bits) {
    const Ulong32Case cases[] = {
        {"4294967295", 10, UINT32_MAX, 0},
        {"4294967296", 10, UINT32_MAX, ERANGE},
        {"99999999999", 10, UINT32_MAX, ERANGE},
        {"18446744073709551616", 10, UINT32_MAX, ERANGE},
        {"2147483648", 10, 2147483648u, 0},
        {"-1", 10, UINT32_MAX, 0},
        {"-4294967295", 10, 1u, 0},
        {"-4294967296", 10, UINT32_MAX, ERANGE},
        {"-18446744073709551615", 10, UINT32_MAX, ERANGE},
        {"0xFFFFFFFF", 0, UINT32_MAX, 0},
        {"0x100000000", 0, UINT32_MAX, ERANGE},
        {"037777777777", 0, UINT32_MAX, 0},
        {"040000000000", 0, UINT32_MAX, ERANGE},
        {" 7", 10, 7u, 0},
        {"-", 10, 0u, 0},
    };
    for (const Ulong32Case& c : cases) {
        SCOPED_TRACE(c.text);
        char* end = nullptr;
        errno = 0;
        EXPECT_EQ(tarn_serv_strtoul_as_ulong32(c.text, &end, c.base), c.value);
        EXPECT_EQ(errno, c.error);
        if (sizeof(long) == 4) {
            char* end_ref = nullptr;
            errno = 0;
            EXPECT_EQ(std::strtoul(c.text, &end_ref, c.base), c.value);
            EXPECT_EQ(errno, c.error);
            EXPECT_EQ(end, end_ref);
        }
    }
}

TEST(FscanfIAsLong32, ReadsTheStreamAsPercentIAndSaturates) {
    const std::string path = testsupport::write_temp_file(
        "99999999999 -4294967296 2147483647 0x10 010 0xg 4294967296\n", ".txt");
    FILE* file = tarn_serv_fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    struct {
        int32_t value;
        int error;
    } const expected[] = {{kMax32, ERANGE}, {kMin32, ERANGE}, {kMax32, 0}, {16, 0}, {8, 0}, {0, 0}};
    for (const auto& e : expected) {
        int32_t value = -5;
        errno = 0;
        EXPECT_EQ(tarn_serv_fscanf_i_as_long32(file, &value), 1);
        EXPECT_EQ(value, e.value);
        EXPECT_EQ(errno, e.error);
    }
    // "0xg": "%i" took "0x" and stops at the g, which no number can pass.
    int32_t value = -5;
    EXPECT_EQ(tarn_serv_fscanf_i_as_long32(file, &value), 0);
    EXPECT_EQ(value, -5);
    EXPECT_EQ(std::fgetc(file), 'g');
    EXPECT_EQ(tarn_serv_fscanf_i_as_long32(file, &value), 1);
    EXPECT_EQ(value, kMax32);
    EXPECT_EQ(tarn_serv_fscanf_i_as_long32(file, &value), EOF);
    EXPECT_EQ(tarn_serv_fclose(file), 0);
    std::remove(path.c_str());
}

// ---- Fortran-style helpers --------------------------------------------------------

TEST(Lsame, ComparesFirstCharactersIgnoringCase) {
    EXPECT_TRUE(tarn_serv_lsame("No transpose", "N"));
    EXPECT_TRUE(tarn_serv_lsame("n", "N"));
    EXPECT_TRUE(tarn_serv_lsame("T", "t"));
    EXPECT_FALSE(tarn_serv_lsame("T", "N"));
    EXPECT_FALSE(tarn_serv_lsame("[", "{"));  // not letters: case folding does not apply
    EXPECT_FALSE(tarn_serv_lsame(nullptr, "N"));
    EXPECT_FALSE(tarn_serv_lsame("N", nullptr));
}

TEST(FortranCopy, PadsWithBlanksAndCutsToTheDestination) {
    char dest[8];
    tarn_serv_strcpy(dest, "abc", 8, 3);
    EXPECT_EQ(std::string(dest, 8), "abc     ");
    tarn_serv_strcpy(dest, "abcdefghij", 8, 10);
    EXPECT_EQ(std::string(dest, 8), "abcdefgh");
    char concat[10];
    tarn_serv_strcat2(concat, "ab", "cde", 10, 2, 3);
    EXPECT_EQ(std::string(concat, 10), "abcde     ");
    tarn_serv_strcat2(concat, "abcdef", "ghijkl", 10, 6, 6);
    EXPECT_EQ(std::string(concat, 10), "abcdefghij");
}

}  // namespace
