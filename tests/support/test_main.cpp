// The main of every test program. Under user-mode emulation a death test
// that starts the program afresh must start it through the emulator, as the
// kernel cannot run it by itself: the words GoogleTest executes for such a
// child are the emulator's, then this program and its arguments.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testsupport::under_emulation()) {
    char self[PATH_MAX];
    const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
    if (len > 0) {
      self[len] = '\0';
      std::vector<std::string> words = testsupport::emulator();
      words.push_back(self);
      for (int i = 1; i < argc; ++i) words.push_back(argv[i]);
      testing::internal::SetInjectableArgvs(words);
    }
  }
  return RUN_ALL_TESTS();
}
