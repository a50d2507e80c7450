// An application that replaces one spelling of xerbla and of the progress
// hook at link time: every link in front of it must reach the replacement,
// and nothing behind it may run.
#include <gtest/gtest.h>

#include <string>

#include "output_capture.h"
#include "service/messages.h"

namespace {
std::string seen;
}  // namespace

extern "C" void XERBLA_(const char* name, const int* info, int namelen) {
    seen += std::string(name, static_cast<std::size_t>(namelen)) + ":" + std::to_string(*info) + ";";
}

extern "C" int tarn_progress_(const int*, const int* step, const char*, int) { return *step + 100; }

namespace {

TEST(ReplacedXerbla, LinksInFrontReachTheApplicationsSpelling) {
    seen.clear();
    const int info = 4;
    cdecl_xerbla("DGETRF", &info, 6);
    xerbla("DGETRS", &info, 6);
    xerbla_("DLASWP", &info, 6);
    EXPECT_EQ(seen, "DGETRF:4;DGETRS:4;DLASWP:4;");
}

TEST(ReplacedXerbla, InstalledInterfaceRoutesLibraryReportsToIt) {
    const auto result = capture::run_in_child([] {
        seen.clear();
        tarn_set_xerbla_interface(cdecl_xerbla);
        const int info = -1002;
        tarn_serv_xerbla("DGETRF", &info, 6);
        std::printf("%s", seen.c_str());
    });
    // The default report never runs: the replacement printed nothing itself.
    EXPECT_EQ(result.out, "DGETRF:-1002;");
}

TEST(ReplacedProgress, LinksInFrontReachTheApplicationsHook) {
    const int thread = 0, step = 5;
    EXPECT_EQ(cdecl_progress(&thread, &step, "DGETRF", 6), 105);
    EXPECT_EQ(tarn_progress(&thread, &step, "DGETRF", 6), 105);
    // Links behind the replacement still end in the default.
    EXPECT_EQ(TARN_PROGRESS_(&thread, &step, "DGETRF", 6), 0);
}

}  // namespace
