// Message table, catalogue lookup and the print routines.
//
// Every body that looks a message up runs in a child process: the catalogue
// is opened once per process and LANG may be rewritten on the way, so the
// parent never touches either.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "output_capture.h"
#include "service/message_table.h"
#include "service/messages.h"
#include "support/test_support.h"

namespace {

using capture::run_in_child;

// Every row any part of the system prints, with its exact text.
const std::map<int, std::string>& expected_rows() {
    static const std::map<int, std::string> rows = {
        {0, "\n"},
        {1, "Vexan TARN FATAL ERROR: Cannot load %s."},
        {6, "Vexan TARN ERROR: Parameter %d was incorrect on entry to %s."},
        {7, "Vexan TARN INTERNAL ERROR: Condition %d detected in function %s."},
        {8, "Vexan TARN INTERNAL ERROR: Insufficient workspace available in function %s."},
        {9, "Vexan TARN ERROR: Incompatible optional parameters on entry to %s."},
        {760, "Vexan TARN FATAL ERROR: memory allocation error."},
        {1057,
         "This binary version of the SMP LINPACK benchmark is optimized for and runs on only genuine Vexan "
         "processors"},
        {1058, "%s"},
        {1059, "Parameters are set to:"},
        {1060, "Number of tests: %i"},
        {1061, "Cannot run %s - not enough memory"},
        {1062, "Maximum memory requested that can be used=%llu, at the size=%u"},
        {1063, "Internal error in %s: memory leak"},
        {1064, "=================== Timing linear equation system solver ==================="},
        {1066, "Error: info returned=%i"},
        {1068, "Performance Summary (GFlops)"},
        {1069, "Size   LDA    Align.  Average  Maximal"},
        {1070, "%-6i %-6i %-3i     %-8.4f %-8.4f"},
        {1071, "End of tests"},
        {1072, "Input data or print help ? Type [data]/help :"},
        {1073, "Could not open file %s"},
        {1074, "Current date/time: %s"},
        {1075, "CPU frequency: %8.3f GHz"},
        {1076, "Number of CPUs: %i"},
        {1077, "Number of threads: %i"},
        {1078, "Warning: incorrect parameter %s (%i),"},
        {1079, "must be not less than (%i),"},
        {1080, "set to default value (%i)."},
        {1081, "must be not bigger than (%i),"},
        {1082, "Could not open file %s, aborted."},
        {1089, "Vexan TARN INTERNAL ERROR: Not enough work memory in function %s"},
        {1090, "Number of cores: %i"},
        {1207, "Conditional numerical reproducibility mode is turned ON"},
        {1208, "Conditional numerical reproducibility mode is turned OFF"},
        {1209, "Vexan TARN WARNING: incorrect conditional numerical reproducibility mode, TARN_CBWR_AUTO is set"},
        {1210,
         "Vexan TARN FATAL ERROR: This system does not meet the minimum requirements for use of the Vexan(R) "
         "Tarn Library."},
        {1211, "The processor must support the Vexan(R) Streaming SIMD 2 Extensions (Vexan(R) SSE2) instructions."},
        {1212, "Vexan TARN INTERNAL ERROR: Issue accessing coprocessor %s."},
        {1213, "Vexan TARN ERROR: CPU %d is not supported."},
        {1238, "Residual checks PASSED"},
        {1239, "Residual checks FAILED"},
        {1240, "%-6i %-6i %-3i    %-10.3f %-8.4f %-10e %-10e   pass"},
        {1241, "%-6i %-6i %-3i    %-10.3f %-8.4f %-10e %-10e   FAIL"},
        {1242, "Size   LDA    Align. Time(s)    GFlops   Residual     Residual(norm) Check"},
    };
    return rows;
}

// A child with no catalogue to be found and LANG unset.
template <class Body>
capture::Output run_without_catalog(Body&& body) {
    return run_in_child([&] {
        setenv("NLSPATH", "/nonexistent/%N", 1);
        unsetenv("LANG");
        body();
    });
}

TEST(MessageTable, EveryPrintedRowHasItsExactText) {
    for (const auto& [id, text] : expected_rows()) {
        EXPECT_STREQ(tarn_msg_table[id].text, text.c_str()) << "row " << id;
    }
}

TEST(MessageTable, RowsOfAbsentFamiliesAreEmptyAndIdsChainToTheEnd) {
    ASSERT_EQ(tarn_msg_table.size(), 1431u);
    for (int id = 0; id < kTarnMsgCount; ++id) {
        if (expected_rows().count(id) == 0) {
            EXPECT_STREQ(tarn_msg_table[id].text, "") << "row " << id;
        }
        EXPECT_EQ(tarn_msg_table[id].next, id == 1430 ? 0 : id + 1) << "row " << id;
        const int type = tarn_msg_table[id].type;
        EXPECT_TRUE(type == 0 || type == 1 || type == 2 || type == 4) << "row " << id;
    }
}

TEST(MessageTable, RawLookupReturnsEveryStoredFormat) {
    const auto result = run_without_catalog([] {
        for (const auto& [id, text] : expected_rows()) {
            if (id == 0) continue;
            std::printf("%d=%s|", id, tarn_serv_get_msg(id, 0));
        }
    });
    std::string expected;
    for (const auto& [id, text] : expected_rows())
        if (id != 0) expected += std::to_string(id) + "=" + text + "|";
    EXPECT_EQ(result.out, expected);
}

TEST(MessagePrint, ParameterErrorGoesToStandardOutputWithLineEnd) {
    const auto result = run_without_catalog([] { tarn_serv_print(0, 6, 2, 3, "DGETRF"); });
    EXPECT_EQ(result.out, "Vexan TARN ERROR: Parameter 3 was incorrect on entry to DGETRF.\n");
    EXPECT_EQ(result.err, "");
}

TEST(MessagePrint, DestinationOneWritesStandardErrorIncludingTheLineEnd) {
    const auto result = run_without_catalog([] { tarn_serv_print(1, 1213, 1, 3); });
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Vexan TARN ERROR: CPU 3 is not supported.\n");
}

TEST(MessagePrint, AnyOtherDestinationIsStandardOutput) {
    const auto result = run_without_catalog([] {
        tarn_serv_print(2, 1071, 0);
        tarn_serv_print(-1, 1238, 0);
    });
    EXPECT_EQ(result.out, "End of tests\nResidual checks PASSED\n");
    EXPECT_EQ(result.err, "");
}

TEST(MessagePrint, IdZeroPrintsOneEmptyLine) {
    const auto result = run_without_catalog([] { tarn_serv_print(0, 0, 0); });
    EXPECT_EQ(result.out, "\n");
}

TEST(MessagePrint, BenchmarkRowsFormatTheirArguments) {
    const auto result = run_without_catalog([] {
        tarn_serv_print(0, 1240, 7, 1000, 1008, 4, 0.125, 5.3412, 1.2e-12, 3.5e-3);
        tarn_serv_print(0, 1241, 7, 16, 16, 0, 0.001, 0.25, 2.0, 100.0);
        tarn_serv_print(0, 1070, 5, 2000, 2000, 4, 12.5, 13.25);
        tarn_serv_print(0, 1075, 1, 2.4);
        tarn_serv_print(0, 1078, 2, "Problem size", 22001);
        tarn_serv_print(0, 1062, 2, 8020000ull, 1000u);
        tarn_serv_print(0, 1089, 1, "DGEMM");
        tarn_serv_print(0, 1058, 1, "title line\n");
    });
    EXPECT_EQ(result.out,
              "1000   1008   4      0.125      5.3412   1.200000e-12 3.500000e-03   pass\n"
              "16     16     0      0.001      0.2500   2.000000e+00 1.000000e+02   FAIL\n"
              "2000   2000   4       12.5000  13.2500 \n"
              "CPU frequency:    2.400 GHz\n"
              "Warning: incorrect parameter Problem size (22001),\n"
              "Maximum memory requested that can be used=8020000, at the size=1000\n"
              "Vexan TARN INTERNAL ERROR: Not enough work memory in function DGEMM\n"
              "title line\n\n");
}

TEST(MessagePrint, TextOfFiveHundredTwelveBytesOrMoreComesOutEmpty) {
    const std::string fits(511, 'a');
    const std::string too_long(512, 'b');
    const auto result = run_without_catalog([&] {
        tarn_serv_print(0, 1058, 1, fits.c_str());
        tarn_serv_print(0, 1058, 1, too_long.c_str());
    });
    EXPECT_EQ(result.out, fits + "\n" + "\n");
}

TEST(MessageLookup, IdZeroIsEmptyAndFormattedLookupFillsTheBuffer) {
    const auto result = run_without_catalog([] {
        std::printf("[%s]", tarn_serv_get_msg(0, 0));
        std::printf("[%s]", tarn_serv_get_msg(0, 2, 1, "X"));
        std::printf("[%s]", tarn_serv_get_msg(7, 0));
        std::printf("[%s]", tarn_serv_get_msg(7, 2, 1002, "DGETRF"));
        std::printf("[%s]", tarn_serv_get_msg(1076, 1, 4));
    });
    EXPECT_EQ(result.out,
              "[][][Vexan TARN INTERNAL ERROR: Condition %d detected in function %s.]"
              "[Vexan TARN INTERNAL ERROR: Condition 1002 detected in function DGETRF.]"
              "[Number of CPUs: 4]");
}

TEST(MessageFormatPrint, NoArgumentsPrintsNothingAtAll) {
    const auto result = run_without_catalog([] {
        tarn_serv_format_print(0, "x\n", 0);
        tarn_serv_format_print(1, "y\n", -1);
    });
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST(MessageFormatPrint, FormatsWithoutLineEndByDestination) {
    const auto result = run_without_catalog([] {
        tarn_serv_format_print(0, "a%db", 1, 5);
        tarn_serv_format_print(0, "%s-%s", 2, "p", "q");
        tarn_serv_format_print(1, "err%d", 1, 7);
    });
    EXPECT_EQ(result.out, "a5bp-q");
    EXPECT_EQ(result.err, "err7");
}

TEST(MessageFormatPrint, FilePrintWritesTheFormattedTextToTheStream) {
    const std::string path = testsupport::write_temp_file("", ".txt");
    const auto result = run_without_catalog([&] {
        FILE* file = std::fopen(path.c_str(), "w");
        tarn_serv_file_format_print(file, "n=%d %s", 2, 42, "ok");
        tarn_serv_file_format_print(file, "silent", 0);
        std::fclose(file);
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(capture::read_file(path), "n=42 ok");
    std::remove(path.c_str());
}

// ---- The catalogue -------------------------------------------------------

// A directory with a catalogue made by gencat from `source`, at
// dir/<subdir>/tarn_msg.cat.
class MessageCatalog : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/tarn_catalog_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        dir_ = name;
    }
    void TearDown() override {
        const std::string command = "rm -rf '" + dir_ + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
    void make_catalog(const std::string& subdir, const std::string& source) {
        const std::string where = subdir.empty() ? dir_ : dir_ + "/" + subdir;
        mkdir(where.c_str(), 0700);
        const std::string msg = testsupport::write_temp_file(source, ".msg");
        const std::string command = "gencat '" + where + "/tarn_msg.cat' '" + msg + "'";
        ASSERT_EQ(std::system(command.c_str()), 0) << "gencat must be installed";
        std::remove(msg.c_str());
    }
    std::string dir_;
};

constexpr const char* kGermanRows =
    "$set 1\n"
    "0 NEVER\n"
    "6 Parameter %d falsch beim Aufruf von %s.\n"
    "1071 Ende der Tests\n";

TEST_F(MessageCatalog, TranslatedRowsReplaceTheTableAndOthersFallBack) {
    make_catalog("", kGermanRows);
    const std::string nlspath = dir_ + "/%N";
    const auto result = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        unsetenv("LANG");
        tarn_serv_print(0, 6, 2, 3, "DGETRF");
        tarn_serv_print(0, 1071, 0);
        tarn_serv_print(0, 1238, 0);
        std::printf("[%s]", tarn_serv_get_msg(6, 0));
    });
    // The line end is the table's own, whatever the catalogue says of row 0.
    EXPECT_EQ(result.out,
              "Parameter 3 falsch beim Aufruf von DGETRF.\n"
              "Ende der Tests\n"
              "Residual checks PASSED\n"
              "[Parameter %d falsch beim Aufruf von %s.]");
}

TEST_F(MessageCatalog, LocaleWithCodesetIsRetriedWithoutItAndLangStaysCut) {
    make_catalog("xx_YY", kGermanRows);
    const std::string nlspath = dir_ + "/%L/%N";
    const auto result = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        setenv("LANG", "xx_YY.UTF-8", 1);
        tarn_serv_print(0, 1071, 0);
        std::printf("LANG=%s", std::getenv("LANG"));
    });
    EXPECT_EQ(result.out, "Ende der Tests\nLANG=xx_YY");
}

TEST_F(MessageCatalog, MissingCatalogueCutsLangAndPrintsTheTable) {
    const std::string nlspath = dir_ + "/%L/%N";
    const auto result = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        setenv("LANG", "xx_YY.UTF-8", 1);
        std::printf("before=%s\n", std::getenv("LANG"));
        tarn_serv_print(0, 1071, 0);
        std::printf("after=%s", std::getenv("LANG"));
    });
    EXPECT_EQ(result.out, "before=xx_YY.UTF-8\nEnd of tests\nafter=xx_YY");
}

TEST_F(MessageCatalog, LangWithoutCodesetAndUnsetLangAreLeftAlone) {
    const std::string nlspath = dir_ + "/%L/%N";
    const auto plain = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        setenv("LANG", "xx_YY", 1);
        tarn_serv_print(0, 1071, 0);
        std::printf("after=%s", std::getenv("LANG"));
    });
    EXPECT_EQ(plain.out, "End of tests\nafter=xx_YY");
    const auto unset = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        unsetenv("LANG");
        tarn_serv_print(0, 1071, 0);
        std::printf("set=%d", std::getenv("LANG") != nullptr);
    });
    EXPECT_EQ(unset.out, "End of tests\nset=0");
}

TEST_F(MessageCatalog, OnlyTheFirstLookupOpensTheCatalogue) {
    make_catalog("side", kGermanRows);
    const std::string nlspath = dir_ + "/%N";
    const std::string side = dir_ + "/side/tarn_msg.cat";
    const std::string in_place = dir_ + "/tarn_msg.cat";
    const auto result = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        unsetenv("LANG");
        tarn_serv_print(0, 1071, 0);
        // A catalogue that appears later is never looked at.
        std::printf("moved=%d\n", std::rename(side.c_str(), in_place.c_str()));
        tarn_serv_print(0, 1071, 0);
    });
    EXPECT_EQ(result.out, "End of tests\nmoved=0\nEnd of tests\n");
}

TEST_F(MessageCatalog, PrintingOnlyLineEndsDoesNotOpenTheCatalogue) {
    make_catalog("xx_YY", kGermanRows);
    const std::string nlspath = dir_ + "/%L/%N";
    const auto result = run_in_child([&] {
        setenv("NLSPATH", nlspath.c_str(), 1);
        setenv("LANG", "xx_YY.UTF-8", 1);
        tarn_serv_print(0, 0, 0);
        std::printf("LANG=%s", std::getenv("LANG"));
    });
    EXPECT_EQ(result.out, "\nLANG=xx_YY.UTF-8");
}

}  // namespace
