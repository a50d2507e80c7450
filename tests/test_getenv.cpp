// tarn_serv_getenv: results by fit, the emptied buffer, and the mode that
// lets only the library-path names and LANG through.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "service/messages.h"
#include "support/test_support.h"

namespace {

using testsupport::EnvGuard;

// Restores the environment mode after each test.
class Getenv : public ::testing::Test {
protected:
    void TearDown() override { tarn_serv_set_envmode_variable(0); }
    // A buffer with a visible marker in every byte.
    static void mark(char* buffer, std::size_t size) { std::memset(buffer, '#', size); }
};

TEST_F(Getenv, ValueThatFitsIsCopiedAndItsLengthReturned) {
    EnvGuard guard("TARN_TEST_VALUE", "avx2");
    char buffer[8];
    mark(buffer, sizeof(buffer));
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 8), 4);
    EXPECT_STREQ(buffer, "avx2");
    // Bytes behind the terminator are left as they were.
    EXPECT_EQ(buffer[5], '#');
}

TEST_F(Getenv, ValueOfExactlyTheBufferSizeGivesMinusItsLengthAndAnEmptyBuffer) {
    EnvGuard guard("TARN_TEST_VALUE", "12345678");
    char buffer[8];
    mark(buffer, sizeof(buffer));
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 8), -8);
    EXPECT_EQ(buffer[0], '\0');
    mark(buffer, sizeof(buffer));
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 4), -8);
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(Getenv, OneByteMoreThanTheValueFits) {
    EnvGuard guard("TARN_TEST_VALUE", "1234567");
    char buffer[8];
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 8), 7);
    EXPECT_STREQ(buffer, "1234567");
}

TEST_F(Getenv, UnsetNameGivesZeroAndEmptiesTheBuffer) {
    EnvGuard guard("TARN_TEST_VALUE", nullptr);
    char buffer[8];
    mark(buffer, sizeof(buffer));
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 8), 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(Getenv, EmptyValueReadsAsLengthZero) {
    EnvGuard guard("TARN_TEST_VALUE", "");
    char buffer[8];
    mark(buffer, sizeof(buffer));
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 8), 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(Getenv, BufferOfSizeZeroIsNeverWritten) {
    EnvGuard guard("TARN_TEST_VALUE", "abc");
    char buffer[2] = {'#', '#'};
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer, 0), -3);
    EXPECT_EQ(buffer[0], '#');
    EnvGuard unset("TARN_TEST_OTHER", nullptr);
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_OTHER", buffer, 0), 0);
    EXPECT_EQ(buffer[0], '#');
}

TEST_F(Getenv, LengthsAreMeasuredUpTo4096) {
    const std::string huge(5000, 'x');
    EnvGuard guard("TARN_TEST_VALUE", huge.c_str());
    std::string buffer(8192, '#');
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_VALUE", buffer.data(), 100), -4096);
    EXPECT_EQ(buffer[0], '\0');
    const std::string long_value(4095, 'y');
    EnvGuard fits("TARN_TEST_OTHER", long_value.c_str());
    EXPECT_EQ(tarn_serv_getenv("TARN_TEST_OTHER", buffer.data(), 4096), 4095);
    EXPECT_EQ(std::string(buffer.c_str()), long_value);
}

TEST_F(Getenv, RestrictedModeHidesTheLibrarysSwitches) {
    EnvGuard cbwr("TARN_CBWR", "AVX2");
    EnvGuard lang("LANG", "de_DE");
    EnvGuard root("TARNROOT", "/opt/tarn");
    EnvGuard path("LD_LIBRARY_PATH", "/lib");
    EnvGuard mcx("MCX_LD_LIBRARY_PATH", "/mcx");
    EXPECT_EQ(tarn_serv_set_envmode_variable(1), 0);
    EXPECT_EQ(tarn_serv_get_envmode_variable(), 1);
    char buffer[16];
    std::memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(tarn_serv_getenv("TARN_CBWR", buffer, 8), 0);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(tarn_serv_getenv("LANG", buffer, 8), 5);
    EXPECT_STREQ(buffer, "de_DE");
    EXPECT_EQ(tarn_serv_getenv("TARNROOT", buffer, 16), 9);
    EXPECT_EQ(tarn_serv_getenv("LD_LIBRARY_PATH", buffer, 16), 4);
    EXPECT_EQ(tarn_serv_getenv("MCX_LD_LIBRARY_PATH", buffer, 16), 4);
    // Any mode of 1 or more restricts; back at 0 everything reads again.
    EXPECT_EQ(tarn_serv_set_envmode_variable(7), 1);
    EXPECT_EQ(tarn_serv_getenv("TARN_CBWR", buffer, 8), 0);
    EXPECT_EQ(tarn_serv_set_envmode_variable(0), 7);
    EXPECT_EQ(tarn_serv_getenv("TARN_CBWR", buffer, 8), 4);
    EXPECT_STREQ(buffer, "AVX2");
}

TEST_F(Getenv, NegativeModeReadsEverything) {
    EnvGuard cbwr("TARN_CBWR", "AUTO");
    tarn_serv_set_envmode_variable(-1);
    char buffer[8];
    EXPECT_EQ(tarn_serv_getenv("TARN_CBWR", buffer, 8), 4);
}

}  // namespace
