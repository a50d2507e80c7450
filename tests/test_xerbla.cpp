// The xerbla handler with its slot and entry forms, the pointer checks, and
// the progress hook. Slots are process-wide and one-way at the interface
// setters, so each body runs in a child of its own.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "output_capture.h"
#include "service/messages.h"

namespace {

using capture::run_in_child;

template <class Body>
capture::Output run_quiet_catalog(Body&& body) {
    return run_in_child([&] {
        setenv("NLSPATH", "/nonexistent/%N", 1);
        unsetenv("LANG");
        body();
    });
}

std::string report_of(const char* name, int info, int namelen) {
    return run_quiet_catalog([&] { tarn_serv_default_xerbla(name, &info, namelen); }).out;
}

TEST(DefaultXerbla, PositiveCodeNamesTheParameterAfterAnEmptyLine) {
    EXPECT_EQ(report_of("DGETRF", 4, 6), "\nVexan TARN ERROR: Parameter 4 was incorrect on entry to DGETRF.\n");
}

TEST(DefaultXerbla, ZeroAndNegativeCodesReportAnInternalCondition) {
    EXPECT_EQ(report_of("DGETRF", 0, 6), "\nVexan TARN INTERNAL ERROR: Condition 0 detected in function DGETRF.\n");
    EXPECT_EQ(report_of("DGETRF", -1002, 6),
              "\nVexan TARN INTERNAL ERROR: Condition 1002 detected in function DGETRF.\n");
}

TEST(DefaultXerbla, ReservedCodesPickTheirOwnRows) {
    EXPECT_EQ(report_of("DGEMM", 1000, 5),
              "\nVexan TARN INTERNAL ERROR: Insufficient workspace available in function DGEMM.\n");
    EXPECT_EQ(report_of("DGEMM", 1001, 5),
              "\nVexan TARN ERROR: Incompatible optional parameters on entry to DGEMM.\n");
    EXPECT_EQ(report_of("DGEMM", 1212, 5), "\nVexan TARN INTERNAL ERROR: Issue accessing coprocessor DGEMM.\n");
    EXPECT_EQ(report_of("DGEMM", 1089, 5), "\nVexan TARN INTERNAL ERROR: Not enough work memory in function DGEMM\n");
    // Neighbours of the reserved codes are ordinary parameters.
    EXPECT_EQ(report_of("DGEMM", 1002, 5), "\nVexan TARN ERROR: Parameter 1002 was incorrect on entry to DGEMM.\n");
}

TEST(DefaultXerbla, LongNamesAreCutToTwentyCharacters) {
    EXPECT_EQ(report_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ", 1, 26),
              "\nVexan TARN ERROR: Parameter 1 was incorrect on entry to ABCDEFGHIJKLMNOPQRST.\n");
    EXPECT_EQ(report_of("ABCDEFGHIJKLMNOPQRSTU", 1, 20),
              "\nVexan TARN ERROR: Parameter 1 was incorrect on entry to ABCDEFGHIJKLMNOPQRST.\n");
}

TEST(DefaultXerbla, NameIsTakenByItsLengthNotItsTerminator) {
    EXPECT_EQ(report_of("DGETRSXYZ", 2, 6), "\nVexan TARN ERROR: Parameter 2 was incorrect on entry to DGETRS.\n");
    EXPECT_EQ(report_of("DGETRS", 2, 0), "\nVexan TARN ERROR: Parameter 2 was incorrect on entry to .\n");
}

TEST(DefaultXerbla, NullArgumentsOrNegativeLengthPrintNothing) {
    const auto result = run_quiet_catalog([] {
        const int info = 3;
        tarn_serv_default_xerbla(nullptr, &info, 6);
        tarn_serv_default_xerbla("DGETRF", nullptr, 6);
        tarn_serv_default_xerbla("DGETRF", &info, -1);
        tarn_serv_xerbla(nullptr, &info, 6);
        tarn_serv_xerbla("DGETRF", nullptr, 6);
    });
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST(DefaultXerbla, ReportsAndReturnsWithoutStoppingTheProcess) {
    const auto result = run_quiet_catalog([] {
        const int info = -3;
        tarn_serv_xerbla("DLASWP", &info, 6);
        std::printf("still running");
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "\nVexan TARN INTERNAL ERROR: Condition 3 detected in function DLASWP.\nstill running");
}

// A handler that prints what it was handed.
void recording_xerbla(const char* name, const int* info, int namelen) {
    std::printf("recorded %.*s %d %d;", namelen, name, *info, namelen);
}
void other_xerbla(const char* name, const int* info, int namelen) {
    std::printf("other %.*s %d;", namelen, name, *info);
}

TEST(XerblaSlot, WithoutHandlerTheDefaultReports) {
    const auto result = run_quiet_catalog([] {
        const int info = 5;
        tarn_serv_xerbla("DGETRS", &info, 6);
    });
    EXPECT_EQ(result.out, "\nVexan TARN ERROR: Parameter 5 was incorrect on entry to DGETRS.\n");
}

TEST(XerblaSlot, SetXerblaReturnsThePreviousOrTheDefaultAndAlwaysStores) {
    const auto result = run_quiet_catalog([] {
        std::printf("%d;", tarn_serv_set_xerbla(recording_xerbla) == tarn_serv_default_xerbla);
        const int info = 2;
        tarn_serv_xerbla("DGETRF", &info, 6);
        std::printf("%d;", tarn_serv_set_xerbla(other_xerbla) == recording_xerbla);
        tarn_serv_xerbla("DGETRF", &info, 6);
    });
    EXPECT_EQ(result.out, "1;recorded DGETRF 2 6;1;other DGETRF 2;");
}

TEST(XerblaSlot, InterfaceSetterFillsOnlyAnEmptySlot) {
    const auto result = run_quiet_catalog([] {
        tarn_set_xerbla_interface(recording_xerbla);
        tarn_serv_set_xerbla_interface(other_xerbla);
        const int info = 7;
        tarn_serv_iface_xerbla("DGETRF", &info, 6);
    });
    EXPECT_EQ(result.out, "recorded DGETRF 7 6;");
}

TEST(XerblaSlot, ApplicationHandlerWinsOverTheInterfaceSetter) {
    const auto result = run_quiet_catalog([] {
        tarn_serv_set_xerbla(other_xerbla);
        tarn_set_xerbla_interface(recording_xerbla);
        const int info = 1;
        tarn_serv_xerbla("DGETRS", &info, 6);
    });
    EXPECT_EQ(result.out, "other DGETRS 1;");
}

TEST(XerblaSlot, InterfaceSetterIsSafeFromManyThreads) {
    const auto result = run_quiet_catalog([] {
        std::thread threads[4];
        for (auto& t : threads) t = std::thread([] { tarn_set_xerbla_interface(recording_xerbla); });
        for (auto& t : threads) t.join();
        const int info = 9;
        tarn_serv_xerbla("X", &info, 1);
    });
    EXPECT_EQ(result.out, "recorded X 9 1;");
}

TEST(XerblaChain, EveryEntryFormReachesTheDefaultReport) {
    const auto result = run_quiet_catalog([] {
        const int info = 3;
        cdecl_xerbla("A", &info, 1);
        xerbla("B", &info, 1);
        xerbla_("C", &info, 1);
        XERBLA_("D", &info, 1);
        XERBLA("E", &info, 1);
    });
    std::string expected;
    for (const char* name : {"A", "B", "C", "D", "E"})
        expected += std::string("\nVexan TARN ERROR: Parameter 3 was incorrect on entry to ") + name + ".\n";
    EXPECT_EQ(result.out, expected);
}

TEST(XerblaChain, InstalledChainReportsLikeTheDefault) {
    const auto result = run_quiet_catalog([] {
        tarn_set_xerbla_interface(cdecl_xerbla);
        const int info = -4;
        tarn_serv_xerbla("DGETRF", &info, 6);
    });
    EXPECT_EQ(result.out, "\nVexan TARN INTERNAL ERROR: Condition 4 detected in function DGETRF.\n");
}

TEST(CheckPtr, NullReportsMissingWorkMemoryUnderTheName) {
    const auto result = run_quiet_catalog([] {
        int word = 0;
        std::printf("%d;", tarn_serv_check_ptr(&word, "DGEMM"));
        std::printf("%d;", tarn_serv_check_ptr(nullptr, "DGEMM"));
        std::printf("%d;", tarn_serv_check_ptr(nullptr, nullptr));
    });
    EXPECT_EQ(result.out, "0;\nVexan TARN INTERNAL ERROR: Not enough work memory in function DGEMM\n1;1;");
}

TEST(CheckPtr, WarnFormOnlyAnswersAndPrintsNothing) {
    const auto result = run_quiet_catalog([] {
        int word = 0;
        std::printf("%d%d%d", tarn_serv_check_ptr_and_warn(&word), tarn_serv_check_ptr_and_warn(nullptr),
                    tarn_serv_check_ptr_and_warn(nullptr, "DTRSM"));
    });
    EXPECT_EQ(result.out, "011");
    EXPECT_EQ(result.err, "");
}

// ---- Progress hook ---------------------------------------------------------

int stopping_hook(const int* thread, const int* step, const char* stage, int stagelen) {
    std::printf("hook %d %d %.*s;", *thread, *step, stagelen, stage);
    return *step >= 3 ? 1 : 0;
}
int other_hook(const int*, const int*, const char*, int) { return 42; }

TEST(Progress, DefaultHookLetsTheWorkGoOn) {
    const int thread = 0, step = 5;
    EXPECT_EQ(tarn_serv_default_progress(&thread, &step, "DGETRF", 6), 0);
    const auto result = run_in_child([] {
        const int t = 1, s = 2;
        std::printf("%d %d", tarn_serv_progress(&t, &s, "DGETRF", 6), cdecl_progress(&t, &s, "DGETRF", 6));
    });
    EXPECT_EQ(result.out, "0 0");
}

TEST(Progress, InstalledHookSeesTheStepAndItsAnswerIsHandedBack) {
    const auto result = run_in_child([] {
        std::printf("%d;", tarn_serv_set_progress(stopping_hook) == tarn_serv_default_progress);
        const int thread = 2;
        for (int step = 2; step <= 3; ++step) std::printf("%d;", tarn_serv_progress(&thread, &step, "DGETRFXX", 6));
        std::printf("%d;", tarn_serv_set_progress(other_hook) == stopping_hook);
    });
    EXPECT_EQ(result.out, "1;hook 2 2 DGETRF;0;hook 2 3 DGETRF;1;1;");
}

TEST(Progress, InterfaceSetterFillsOnlyAnEmptySlot) {
    const auto result = run_in_child([] {
        tarn_serv_set_progress_interface(other_hook);
        tarn_serv_set_progress_interface(stopping_hook);
        const int thread = 0, step = 0;
        std::printf("%d;", tarn_serv_progress(&thread, &step, "DGETRF", 6));
        tarn_serv_set_progress(stopping_hook);
        std::printf("%d;", tarn_serv_progress(&thread, &step, "DGETRF", 6));
    });
    EXPECT_EQ(result.out, "42;hook 0 0 DGETRF;0;");
}

TEST(Progress, EveryEntryFormEndsInTheDefault) {
    const auto result = run_in_child([] {
        tarn_serv_set_progress(other_hook);  // the chain does not consult the slot
        const int thread = 0, step = 9;
        std::printf("%d%d%d%d%d", cdecl_progress(&thread, &step, "S", 1), tarn_progress(&thread, &step, "S", 1),
                    tarn_progress_(&thread, &step, "S", 1), TARN_PROGRESS_(&thread, &step, "S", 1),
                    TARN_PROGRESS(&thread, &step, "S", 1));
    });
    EXPECT_EQ(result.out, "00000");
}

}  // namespace
