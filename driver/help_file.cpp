// Printing a help file that lies beside the program.
#include <cstdio>

#include "driver/driver.h"
#include "service/messages.h"
#include "service/strings.h"

void print_help_file(const char* name) {
  FILE* f = tarn_serv_fopen(name, "r");
  if (f == nullptr) {
    tarn_serv_print(kToStdout, drvmsg::kCannotOpenHelp, 1, name);
    return;
  }
  char line[kLineSize];
  while (std::fgets(line, sizeof line, f) != nullptr) std::printf("%s", line);
  tarn_serv_fclose(f);
}
